// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reading tar files: what becomes a file of the log, and what does not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "reader/catalogue.h"
#include "reader/tar_writer.h"
#include "tests/support/files.h"

namespace {

constexpr const char* First = "messages.001.1970-01-01.00:00:01.txt.xz";
constexpr const char* Second = "messages.002.1970-01-01.00:00:01.txt.xz";

class TarFile : public testing::Test {
protected:
    void Add(const std::string& name, const std::string& content, std::int64_t mtime = 7) {
        ASSERT_SUCCESS(writer.Begin({.name = name, .size = content.size(), .mtime = mtime}) ||
                       writer.Write(content) || writer.End());
    }

    // A member whose header was changed afterwards, with the checksum that belongs to it.
    template <typename Change>
    void AddChanged(const std::string& name, const std::string& content, const Change& change) {
        const std::size_t at = stream.size();
        Add(name, content);
        Reader::TarHeader header;
        stream.copy(reinterpret_cast<char*>(&header), sizeof header, at);
        change(header);
        Reader::WriteTarNumber(std::span(header.checksum).first(7), Reader::SumOf(header));
        stream.replace(at, sizeof header, reinterpret_cast<const char*>(&header), sizeof header);
    }

    // For the next member.
    void AddPax(const std::vector<std::string>& records) {
        std::string text;
        for (const std::string& record : records) {
            const std::size_t rest = record.size() + 2;  // with the blank and the line feed
            const std::size_t digits = rest < 9 ? 1 : rest < 98 ? 2 : 3;
            text += std::to_string(rest + digits) + " " + record + "\n";
        }
        AddChanged("PaxHeaders/x", text, [](Reader::TarHeader& header) { header.type = 'x'; });
    }

    void Read() {
        catalogue.emplace();
        WriteFile("/tmp/test.tar", stream);
        Reader::OpenTar("x.tar", Reader::Descriptor(open("/tmp/test.tar", O_RDONLY)), *catalogue);
    }

    void ReadFromPipe() {
        catalogue.emplace();
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        std::thread writes([&] {
            EXPECT_EQ(write(ends[1], stream.data(), stream.size()),
                      static_cast<ssize_t>(stream.size()));
            close(ends[1]);
        });
        Reader::OpenTar("-", Reader::Descriptor(ends[0]), *catalogue);
        writes.join();
    }

    std::vector<std::pair<std::string, std::string>> Files() const {
        std::vector<std::pair<std::string, std::string>> files;
        for (const Reader::Entry& entry : catalogue->entries) {
            const Reader::Place& place = catalogue->placed[entry.id].place;
            std::string content(place.size, '\0');
            if (place.memory != nullptr) {
                content.assign(place.memory + place.offset, place.size);
            } else {
                EXPECT_EQ(
                    pread(place.fd, content.data(), place.size, static_cast<off_t>(place.offset)),
                    static_cast<ssize_t>(place.size));
            }
            files.emplace_back(entry.Name(), content);
        }
        return files;
    }

    std::string Problems() const {
        std::string text;
        for (const Reader::Problem& problem : catalogue->problems) {
            text += problem.file + ": " + problem.reason + "\n";
        }
        return text;
    }

    std::string stream;
    Reader::TarWriter writer{[this](std::string_view bytes) {
        stream += bytes;
        return false;
    }};
    std::optional<Reader::Catalogue> catalogue;
};

using Contents = std::vector<std::pair<std::string, std::string>>;

TEST_F(TarFile, GivesTheFilesOfTheLogInTheirOrder) {
    Add("messages.txt.xz", "live");
    Add("messages.txt.3.xz", std::string(513, 'r'));
    Add(Second, "b");
    Add("some/where/" + std::string(First), "a");
    Add("manifest.json", "{}");
    ASSERT_SUCCESS(writer.Finish());
    const Contents expected{{First, "a"},
                            {Second, "b"},
                            {"messages.txt.3.xz", std::string(513, 'r')},
                            {"messages.txt.xz", "live"}};
    Read();
    EXPECT_EQ(Files(), expected);
    EXPECT_EQ(Problems(), "");
    EXPECT_EQ(catalogue->currentBoot, 3U);
    ReadFromPipe();
    EXPECT_EQ(Files(), expected);
    EXPECT_EQ(Problems(), "");
}

TEST_F(TarFile, OfTwoMembersWithTheSameNameTakesTheLater) {
    Add(First, "old");
    Add(First, "new");
    ASSERT_SUCCESS(writer.Finish());
    Read();
    EXPECT_EQ(Files(), (Contents{{First, "new"}}));
}

TEST_F(TarFile, PassesOverTheFolderOfForeignFiles) {
    Add("syslog/foreign/" + std::string(First), "foreign");
    Add("foreign/messages.txt", "foreign");
    Add("syslog/messages.txt", "live");
    AddChanged("messages.txt", "foreign", [](Reader::TarHeader& header) {
        strncpy(header.prefix, "a/long/way/to/foreign", sizeof header.prefix);
    });
    AddChanged("messages.txt.0", "old GNU tar has other fields there",
               [](Reader::TarHeader& header) {
                   memcpy(header.magic, "ustar ", sizeof header.magic);
                   strncpy(header.prefix, "foreign", sizeof header.prefix);
               });
    AddChanged("foreign/messages.txt.1", "foreign", [](Reader::TarHeader& header) {
        strncpy(header.prefix, "a/long/way/to", sizeof header.prefix);
    });
    ASSERT_SUCCESS(writer.Finish());
    Read();
    EXPECT_EQ(Files(), (Contents{{"messages.txt.0", "old GNU tar has other fields there"},
                                 {"messages.txt", "live"}}));
}

TEST_F(TarFile, ReportsAnArchiveNameThatIsNoFile) {
    AddChanged(First, "", [](Reader::TarHeader& header) { header.type = '2'; });
    AddChanged(std::string(Second) + "/", "", [](Reader::TarHeader& header) { header.type = '5'; });
    AddChanged("archive/", "", [](Reader::TarHeader& header) { header.type = '5'; });
    Add("messages.x.txt.xz", "x");
    ASSERT_SUCCESS(writer.Finish());
    Read();
    EXPECT_EQ(Files(), Contents());
    EXPECT_EQ(Problems(), std::string(First) + ": not a regular file, skipped\n" + Second +
                              ": not a regular file, skipped\n"
                              "messages.x.txt.xz: no boot number in its name, skipped\n");
}

TEST_F(TarFile, TakesWhatThereIsOfATruncatedMember) {
    Add(First, "whole");
    Add(Second, std::string(2000, 'x'));
    stream.resize(stream.size() - 1500);
    Read();
    const Contents expected{{First, "whole"}, {Second, std::string(548, 'x')}};
    EXPECT_EQ(Files(), expected);
    EXPECT_EQ(Problems(), "x.tar: the tar file is truncated\n");
    ReadFromPipe();
    EXPECT_EQ(Files(), expected);
}

TEST_F(TarFile, EndsAtADamagedHeader) {
    Add(First, "whole");
    const std::size_t second = stream.size();
    Add(Second, "x");
    stream[second] = 'X';
    Read();
    EXPECT_EQ(Files(), (Contents{{First, "whole"}}));
    EXPECT_EQ(Problems(), "x.tar: the tar file is damaged\n");
}

TEST_F(TarFile, SurvivesSizesAndTimesOfAnyKind) {
    const auto setSize = [&](std::uint64_t size) {
        return [=](Reader::TarHeader& header) { Reader::WriteTarNumber(header.size, size); };
    };
    AddChanged(First, "", setSize(UINT64_MAX));
    Read();
    EXPECT_EQ(Problems(), "x.tar: the tar file is truncated\n");
    ReadFromPipe();
    EXPECT_EQ(Problems(), "-: the tar file is truncated\n");

    stream.clear();
    // As GNU tar writes the times before 1970.
    AddChanged(First, "", [](Reader::TarHeader& header) { memset(header.mtime, 0xFF, 12); });
    ASSERT_SUCCESS(writer.Finish());
    Read();
    ASSERT_EQ(Files(), (Contents{{First, ""}}));
    EXPECT_EQ(catalogue->placed[0].mtime, 0);
}

TEST_F(TarFile, ReadsPaxRecords) {
    AddPax({"path=d/" + std::string(First), "mtime=1234567.89", "x=y"});
    Add("short", "content");
    Add(Second, "no record is left for it");
    ASSERT_SUCCESS(writer.Finish());
    Read();
    EXPECT_EQ(Files(), (Contents{{First, "content"}, {Second, "no record is left for it"}}));
    EXPECT_EQ(catalogue->placed[catalogue->entries[0].id].mtime, 1234567);
    EXPECT_EQ(catalogue->placed[catalogue->entries[1].id].mtime, 7);
}

TEST_F(TarFile, SkipsSparseMembers) {
    const std::string first = First;
    for (const std::vector<std::string>& records : std::vector<std::vector<std::string>>{
             {"GNU.sparse.size=9", "GNU.sparse.numblocks=1", "GNU.sparse.offset=8",
              "GNU.sparse.numbytes=1", "path=" + first},
             {"GNU.sparse.size=9", "GNU.sparse.name=" + first, "GNU.sparse.map=8,1"},
             {"GNU.sparse.major=1", "GNU.sparse.minor=0", "GNU.sparse.name=" + first,
              "path=GNUSparseFile.0/x"},
             {"SCHILY.realsize=9", "path=" + first}}) {
        stream.clear();
        AddPax(records);
        Add("GNUSparseFile.0/x", "1\n8\n1\n");
        Add(Second, "no record is left for it");
        ASSERT_SUCCESS(writer.Finish());
        Read();
        EXPECT_EQ(Files(), (Contents{{Second, "no record is left for it"}})) << records.front();
        EXPECT_EQ(Problems(), first + ": not a regular file, skipped\n");
    }
}

TEST_F(TarFile, PassesOverTheMapOfASparseMember) {
    AddChanged(First, std::string(1025, 'x'), [](Reader::TarHeader& header) {
        header.type = 'S';
        memcpy(header.magic, "ustar ", sizeof header.magic);
        header.prefix[482 - offsetof(Reader::TarHeader, prefix)] = 1;
    });
    std::string more(512, '\0');
    stream.insert(512, more);
    more[504] = 1;
    stream.insert(512, more);
    Add(Second, "behind");
    ASSERT_SUCCESS(writer.Finish());
    Read();
    EXPECT_EQ(Files(), (Contents{{Second, "behind"}}));
    EXPECT_EQ(Problems(), std::string(First) + ": not a regular file, skipped\n");
    stream.resize(1024);
    ReadFromPipe();
    EXPECT_EQ(Problems(), "-: the tar file is truncated\n");
}

TEST_F(TarFile, IsNoneWithoutAHeader) {
    for (const std::string& content : {std::string(), std::string(600, 'x'), std::string("x")}) {
        stream = content;
        Read();
        EXPECT_EQ(Problems(), "x.tar: not a tar file\n");
    }
}

}  // namespace
