// The real Linux file service with faults injected: every call goes to the real backend, on real
// files, except the operations a test chose to fail on the paths it chose, which answer the errno
// it chose. A failed copy leaves the first half of the data under the new name (the worst a
// backend could leave, so that the callers' own clean-up is tested); a failed write or sync of an
// open file writes nothing.
#pragma once

#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"

namespace tessel::testing {

class FaultyFileService final : public platform::FileService {
 public:
  using FileError = platform::FileError;
  using FileStatus = platform::FileStatus;

  FaultyFileService() : real_(platform::makeLinuxFileService()) {}

  // From now on `operation` ("copyFile", "rename", "write", ...; the method's name, and "write",
  // "writeAt", "sync" for an open file) fails with `error` on every path containing `pathPart`
  // ("" for any), `times` times (-1: always).
  void fail(std::string operation, int error, std::string pathPart = "", int times = -1) {
    faults_.push_back({std::move(operation), std::move(pathPart), error, times});
  }
  void clearFaults() { faults_.clear(); }

  platform::FileResult<platform::FileInfo> info(const std::string& path,
                                                bool followLinks = true) override {
    if (int e = fault("info", path)) return FileError{e};
    return real_->info(path, followLinks);
  }
  // The path a walk is matched on is the root and the names joined.
  FileStatus walk(const std::string& root, const std::vector<std::string>& names) override {
    std::string path = root;
    for (const std::string& name : names) path += "/" + name;
    if (int e = fault("walk", path)) return FileError{e};
    return real_->walk(root, names);
  }
  platform::OpenedFile open(const std::string& path, platform::OpenMode mode) override {
    if (int e = fault("open", path)) return FileError{e};
    platform::OpenedFile file = real_->open(path, mode);
    if (!file) return file;
    return std::unique_ptr<platform::OpenFile>(std::make_unique<File>(*this, path, std::move(file)));
  }
  FileStatus createFolder(const std::string& path) override {
    if (int e = fault("createFolder", path)) return FileError{e};
    return real_->createFolder(path);
  }
  FileStatus removeFile(const std::string& path) override {
    if (int e = fault("removeFile", path)) return FileError{e};
    return real_->removeFile(path);
  }
  FileStatus removeFolder(const std::string& path) override {
    if (int e = fault("removeFolder", path)) return FileError{e};
    return real_->removeFolder(path);
  }
  FileStatus rename(const std::string& from, const std::string& to) override {
    if (int e = fault("rename", from, to)) return FileError{e};
    return real_->rename(from, to);
  }
  FileStatus exchange(const std::string& a, const std::string& b) override {
    if (int e = fault("exchange", a, b)) return FileError{e};
    return real_->exchange(a, b);
  }
  FileStatus syncFolder(const std::string& folder) override {
    if (int e = fault("syncFolder", folder)) return FileError{e};
    return real_->syncFolder(folder);
  }
  std::string temporaryFolderFor(const std::string& path) override {
    return real_->temporaryFolderFor(path);
  }
  FileStatus listFolder(const std::string& path,
                        std::vector<platform::FolderEntry>& entries) override {
    if (int e = fault("listFolder", path)) return FileError{e};
    return real_->listFolder(path, entries);
  }
  platform::FileResult<std::string> readLink(const std::string& path) override {
    if (int e = fault("readLink", path)) return FileError{e};
    return real_->readLink(path);
  }
  FileStatus createLink(const std::string& target, const std::string& path) override {
    if (int e = fault("createLink", path)) return FileError{e};
    return real_->createLink(target, path);
  }
  FileStatus copyFile(const std::string& from, const std::string& to,
                      const platform::CopyProgress& progress = {},
                      size_t blockSize = 0) override {
    int e = fault("copyFile", from, to);
    if (e == 0) return real_->copyFile(from, to, progress, blockSize);
    // Half of the data lands before the failure.
    if (auto source = real_->info(from); source && real_->copyFile(from, to)) {
      if (auto file = real_->open(to, platform::OpenMode::ReadWrite))
        ::ftruncate(file->descriptor(), static_cast<off_t>(source->size / 2));
    }
    return FileError{e};
  }
  FileStatus setMode(const std::string& path, uint32_t mode) override {
    if (int e = fault("setMode", path)) return FileError{e};
    return real_->setMode(path, mode);
  }
  bool isLocked(const std::string& path) override { return real_->isLocked(path); }
  FileStatus setLocked(const std::string& path, bool locked) override {
    if (int e = fault("setLocked", path)) return FileError{e};
    return real_->setLocked(path, locked);
  }
  bool isHidden(const std::string& path) override { return real_->isHidden(path); }
  FileStatus setHidden(const std::string& path, bool hidden) override {
    if (int e = fault("setHidden", path)) return FileError{e};
    return real_->setHidden(path, hidden);
  }
  platform::FileResult<platform::FinderInfo> finderInfo(const std::string& path) override {
    if (int e = fault("finderInfo", path)) return FileError{e};
    return real_->finderInfo(path);
  }
  FileStatus setFinderInfo(const std::string& path, const platform::FinderInfo& info) override {
    if (int e = fault("setFinderInfo", path)) return FileError{e};
    return real_->setFinderInfo(path, info);
  }
  platform::FileResult<std::string> resourceFork(const std::string& path) override {
    if (int e = fault("resourceFork", path)) return FileError{e};
    return real_->resourceFork(path);
  }
  uint64_t resourceForkSize(const std::string& path) override {
    return real_->resourceForkSize(path);
  }
  FileStatus setResourceFork(const std::string& path, std::string_view data) override {
    if (int e = fault("setResourceFork", path)) return FileError{e};
    return real_->setResourceFork(path, data);
  }
  FileStatus setOwner(const std::string& path, uint32_t uid, uint32_t gid) override {
    if (int e = fault("setOwner", path)) return FileError{e};
    return real_->setOwner(path, uid, gid);
  }
  FileStatus setModifiedTime(const std::string& path, int64_t seconds,
                             uint32_t nanoseconds) override {
    if (int e = fault("setModifiedTime", path)) return FileError{e};
    return real_->setModifiedTime(path, seconds, nanoseconds);
  }
  FileStatus listFolderWithSizes(const std::string& path,
                                 std::vector<platform::FolderEntry>& entries,
                                 std::vector<uint64_t>& sizes) override {
    if (int e = fault("listFolder", path)) return FileError{e};
    return real_->listFolderWithSizes(path, entries, sizes);
  }

 private:
  struct Fault {
    std::string operation;
    std::string pathPart;
    int error = 0;
    int times = -1;
  };

  // The open file forwards too; its writes and syncs can fail.
  class File final : public platform::OpenFile {
   public:
    File(FaultyFileService& owner, std::string path, std::unique_ptr<platform::OpenFile> real)
        : owner_(owner), path_(std::move(path)), real_(std::move(real)) {}
    int64_t read(void* buffer, size_t size) override { return real_->read(buffer, size); }
    int64_t readAt(void* buffer, size_t size, uint64_t offset) override {
      return real_->readAt(buffer, size, offset);
    }
    FileStatus write(const void* data, size_t size) override {
      if (int e = owner_.fault("write", path_)) return FileError{e};
      return real_->write(data, size);
    }
    FileStatus writeAt(const void* data, size_t size, uint64_t offset) override {
      if (int e = owner_.fault("writeAt", path_)) return FileError{e};
      return real_->writeAt(data, size, offset);
    }
    std::optional<uint64_t> size() override { return real_->size(); }
    FileStatus sync() override {
      if (int e = owner_.fault("sync", path_)) return FileError{e};
      return real_->sync();
    }
    int descriptor() const override { return real_->descriptor(); }

   private:
    FaultyFileService& owner_;
    std::string path_;
    std::unique_ptr<platform::OpenFile> real_;
  };

  // The errno of the first fault that applies to the call (using up one of its times), else 0.
  int fault(const std::string& operation, const std::string& path,
            const std::string& other = {}) {
    for (Fault& f : faults_) {
      if (f.operation != operation || f.times == 0) continue;
      if (path.find(f.pathPart) == std::string::npos &&
          (other.empty() || other.find(f.pathPart) == std::string::npos))
        continue;
      if (f.times > 0) --f.times;
      return f.error;
    }
    return 0;
  }

  std::unique_ptr<platform::FileService> real_;
  std::vector<Fault> faults_;
};

}  // namespace tessel::testing
