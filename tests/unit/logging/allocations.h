// How often the calling thread has asked `new` for memory.
#pragma once

int Allocations();
