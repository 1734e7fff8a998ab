// The general utilities, all at once.
#pragma once

#include "elapsed_time.h"
#include "encode.h"
#include "format.h"
#include "parse.h"
