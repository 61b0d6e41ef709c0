// The Linux file backend's plumbing: path text, statx and the lock test, and whole-buffer I/O
// (one write loop for every writer, one pread loop, data and attribute copies).
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace tessel::platform::filebackend {

FileKind kindOf(uint32_t mode);

// The path without trailing slashes ("/" stays "/").
std::string trimmed(const std::string& path);
std::string_view leafOf(const std::string& path);
// The folder of the path ("." for a bare name, "/" for an item of the root).
std::string folderOf(const std::string& path);
// The resource-fork companion "._name" beside the item.
std::string companionOf(const std::string& path);

// statx of the path; false with errno set when it fails (ENOENT for "").
bool statItem(const std::string& path, bool followLinks, struct statx& sx);
// Locked: the immutable flag, or no write bit for anyone. A link itself is never locked.
bool lockedItem(const struct statx& sx);
// Sets or clears the immutable flag; 0 or the errno.
int setImmutable(const std::string& path, bool on);

// All of `size` bytes at the file position, or at `offset` when given (pwrite).
FileStatus writeAll(int fd, const void* data, size_t size, std::optional<uint64_t> offset = {});
// All of `size` bytes from `offset`; false at an error or the end of the file.
bool preadAll(int fd, void* buffer, size_t size, uint64_t offset);
// Writes `data` as the file `path` under its partial name in the same folder (after removing
// what a killed write left there), then renames it in place, so the old content stays whole
// until the new one is; nothing of it stays on a failure.
FileStatus writeReplacing(const std::string& path, std::string_view data);

// The data of `in` appended to `out` in blocks of `blockSize` (0: large ones), `progress` asked
// after each (ECANCELED when progress said stop).
FileStatus copyData(int in, int out, const CopyProgress& progress, size_t blockSize);
// Every extended attribute of `in` that `out` accepts.
void copyAttributes(int in, int out);

}  // namespace tessel::platform::filebackend
