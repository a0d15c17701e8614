#pragma once

#include <cstddef>

/// To be called before the heap takes in very many small objects, of about `bytes` altogether: it
/// grows at once and, where the system has them, in large pages, whose faults are few.
/// What is freed stays the process's from then on: for calls of the same size it grows once. One
/// thread at a time. Nothing fails.
void osal_growHeap(std::size_t bytes) noexcept;
