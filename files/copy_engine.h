// Copying, renaming, creating and deleting files and folders, with the overwrite modes and the
// copy result codes (0 copied ... 8 nothing matched, 9 cancelled).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessel::files {

// Result codes of a copy.
enum CopyCode : int32_t {
  kCopied = 0,
  kNoSource = 1,
  kBadDestination = 2,
  kSourceUnresolvable = 3,
  kCopyFailed = 4,
  kNoDestinationFolder = 5,
  kDestinationExists = 6,
  kDestinationNotOlder = 7,
  kNothingMatched = 8,
  kCancelled = 9,
};

// What a progress copy follows of the copy engine's work. With an observer, the engine copies the
// data in blocks of blockSize() bytes straight under the destination's name and asks the observer
// after each block; a cancel ends the copy with kCancelled and leaves the partial destination.
class CopyObserver {
 public:
  virtual ~CopyObserver() = default;
  // Before a file's data is copied: the source's leaf name and its size. False cancels.
  virtual bool beginFile(std::string_view leafName, uint64_t size) = 0;
  // After every block, with the bytes of that block. False cancels.
  virtual bool block(uint64_t bytes) = 0;
  // 0 copies the data in one piece.
  virtual size_t blockSize() const { return 64512; }
};

// One file with the overwrite rules: a code 0-7 (9 when the observer cancelled).
int32_t copyOneFile(std::string_view source, std::string_view dest, std::string_view overwrite,
                    CopyObserver* observer = nullptr);
// The matching files directly in one folder: 8 when none matched, else 0 or the last failing code.
int32_t copyFolderFiles(std::string_view sourceFolder, std::string_view destFolder,
                        std::string_view fileSpec, std::string_view overwrite,
                        CopyObserver* observer = nullptr);
// Creates a folder and every missing folder above it: 1 when it exists afterwards, else 0.
int32_t createFolderPath(std::string_view folder);
// Gives an existing destination folder of a tree copy its source folder's attributes as read,
// even none ("" clears the invisible flag and unlocks). tsXCopy calls it after the folder's
// files, tsXCopyProgress before them.
void copyFolderAttributes(std::string_view sourceFolder, std::string_view destFolder);

int32_t copyFile(std::string_view source, std::string_view dest, std::string_view overwrite);
int32_t copyXFiles(std::string_view sourceFolder, std::string_view destFolder,
                   std::string_view fileSpec, std::string_view overwrite);
int32_t xCopy(std::string_view sourceFolder, std::string_view destFolder,
              std::string_view fileSpec, std::string_view overwrite, int32_t makeDirs);
int32_t renameFile(std::string_view file, std::string_view newName);
int32_t createFolder(std::string_view folder);
int32_t deleteFolder(std::string_view folder);
int32_t deleteFile(std::string_view file);

}  // namespace tessel::files
