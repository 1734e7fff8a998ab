// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The general utilities, all at once.
#pragma once

#include "util/elapsed_time.h"
#include "util/encode.h"
#include "util/format.h"
#include "util/obscure.h"
#include "util/parse.h"
