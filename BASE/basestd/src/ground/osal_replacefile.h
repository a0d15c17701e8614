#pragma once

#include <sys/types.h>

#include <string_view>

/// Replaces the small file at `path`, or creates it, whole: whoever opens it finds the former
/// content or `content`, never a part. It is written under a name of its own beside it, created
/// exclusively, and then renamed; a link at `path` is replaced, not followed. The permission bits
/// are `mode`, whatever the umask. `durable`: a power cut keeps one of the two as well; that costs
/// two waits for the disk.
///
/// Returns 0 or an errno value. After a failure what stood at `path` stands there still, and
/// nothing beside it. Logs nothing, throws nothing.
[[nodiscard]] int osal_replaceFile(const char* path, std::string_view content, mode_t mode,
                                   bool durable) noexcept;
