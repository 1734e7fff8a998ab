// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Tar files: every member that is found lies inside the file.
#include <sys/mman.h>
#include <unistd.h>

#include "reader/catalogue.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int fd = memfd_create("tar", MFD_CLOEXEC);
    REQUIRE(!(fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)));
    (void)lseek(fd, 0, SEEK_SET);
    Reader::Catalogue catalogue;
    Reader::OpenTar("tar", Reader::Descriptor(fd), catalogue);
    for (const Reader::Placed& member : catalogue.placed) {
        REQUIRE(!(member.place.size != 0 && member.place.offset + member.place.size > size));
    }
    return 0;
}
