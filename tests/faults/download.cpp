// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a download page does, and no more: makes room, packs, and tidies up. The exit status is the
// number of logs packed, 255 for failure, or 254 if memory has run out.
#include <new>

#include "logfileutils/log_file_utils.h"

int main() {
    try {
        LogFileUtils catalogue;
        catalogue.DeleteDownload();
        catalogue.DeleteLogTempFiles();
        const int packed = catalogue.PrepDefaultLogFileDownload();
        catalogue.DeleteLogTempFiles();
        return packed;
    } catch (const std::bad_alloc&) {
        return 254;
    }
}
