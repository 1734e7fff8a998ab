// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The program behind the log page: a CGI program, started by the web server for each request, that
// answers questions about the log and changes nothing. See docs/moraine-page.8.
#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "logpage/answer.h"
#include "logpage/limits.h"
#include "logpage/parameters.h"
#include "logpage/requests.h"
#include "reader/expression.h"

namespace Page {

namespace {

struct Address {
    std::string_view path;
    void (*serve)(Parameters& parameters, Answer& answer);
};

constexpr Address Addresses[]{{"/status", ServeStatus},
                              {"/boots", ServeBoots},
                              {"/log", ServeLog},
                              {"/follow", ServeFollow},
                              {"/download", ServeDownload}};

std::string_view Environment(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string_view() : value;
}

void Serve(Answer& answer) {
    const std::string_view method = Environment("REQUEST_METHOD");
    if (method != "GET" && method != "HEAD") throw Error{405, "only GET and HEAD are possible"};
    const std::string_view path = Environment("PATH_INFO");
    for (const Address& address : Addresses) {
        if (address.path != path) continue;
        Parameters parameters(Environment("QUERY_STRING"));
        return address.serve(parameters, answer);
    }
    throw Error{404, "no such address"};
}

void Run() {
    (void)std::signal(SIGPIPE, SIG_DFL);  // The server may have ignored it.
    LimitResources();
    Answer answer(Environment("REQUEST_METHOD") != "HEAD");
    try {
        Serve(answer);
    } catch (const Error& error) {
        answer.Fail(error);
    } catch (const Reader::TooComplex& error) {
        answer.Fail({500, std::string("grep: ") + error.what()});
    } catch (const std::bad_alloc&) {
        answer.Fail({500, "out of memory"});
    } catch (const std::exception& error) {
        answer.Fail({500, error.what()});
    }
}

}  // namespace

}  // namespace Page

int main() {
    Page::Run();
    return EXIT_SUCCESS;
}
