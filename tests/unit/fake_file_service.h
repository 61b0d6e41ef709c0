// An in-memory file service for logic tests: a tree of files, folders and links with Finder
// information, resource forks, locks and invisibility, following the Linux backend's rules
// (locked items refuse writing, removal, renaming and replacement with EPERM, and a locked
// folder gains and loses no items; forks travel with copies and renames; a "." name is always
// invisible). Listings come in name order.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/files.h"

namespace tessel::platform {

class FakeFileService final : public FileService {
 public:
  struct Node {
    FileKind kind = FileKind::File;
    std::string data;    // a file's bytes, a link's target
    uint32_t mode = 0644;
    std::optional<FinderInfo> finder;
    std::string fork;
    bool immutable = false;
    int64_t modified = 0;
    uint64_t inode = 0;
  };

  // False: the filesystem keeps no extended attributes (Finder information cannot be stored).
  bool extendedAttributes = true;
  // Names listed in their folder's ".hidden", as full paths.
  std::set<std::string> hiddenListed;
  // Counts of calls, for tests that check how often a folder is read.
  int listings = 0;
  // Faults to inject: the next call of an operation ("copyFile", "rename") fails with the errno.
  // A failing copyFile leaves half of the copy behind, as a full disk does.
  std::map<std::string, int> failNext;

  FakeFileService() { nodes_["/"] = Node{FileKind::Folder, {}, 0755}; }

  // ---- Building the tree ----------------------------------------------------------------------
  Node& addFolder(const std::string& path) {
    std::string p = clean(path);
    if (p != "/") addFolder(parentOf(p));
    auto [it, added] = nodes_.try_emplace(p, Node{FileKind::Folder, {}, 0755});
    if (added) it->second.inode = ++inodes_;
    return it->second;
  }
  Node& addFile(const std::string& path, std::string data = {}) {
    std::string p = clean(path);
    addFolder(parentOf(p));
    Node& n = nodes_[p];
    n = Node{FileKind::File, std::move(data), 0644};
    n.inode = ++inodes_;
    return n;
  }
  Node& addLink(const std::string& path, const std::string& target) {
    Node& n = addFile(path, target);
    n.kind = FileKind::Link;
    n.mode = 0777;
    return n;
  }
  Node* node(const std::string& path) {
    auto it = nodes_.find(clean(path));
    return it == nodes_.end() ? nullptr : &it->second;
  }
  bool exists(const std::string& path) { return node(path) != nullptr; }

  // ---- FileService ------------------------------------------------------------------------------
  std::optional<FileInfo> info(const std::string& path, bool followLinks = true) override {
    Node* n = followLinks ? resolve(path) : node(path);
    if (n == nullptr) return fail(ENOENT);
    FileInfo i;
    i.kind = n->kind;
    i.size = n->kind == FileKind::Folder ? 4096 : n->data.size();
    i.mode = n->mode;
    i.inode = n->inode;
    i.modifiedSeconds = n->modified;
    return i;
  }
  int lastError() const override { return error_; }

  // Each step follows a link (eight at most: ELOOP); a folder without a search bit refuses the
  // steps through it (EACCES), a file ENOTDIR.
  int walk(const std::string& root, const std::vector<std::string>& names) override {
    std::string at = clean(root);
    Node* n = resolve(at, &at);
    if (n == nullptr) return error_ = at.empty() ? ELOOP : ENOENT;
    if (n->kind != FileKind::Folder) return error_ = ENOTDIR;
    for (const std::string& name : names) {
      if (n->kind != FileKind::Folder) return error_ = ENOTDIR;
      if ((n->mode & 0111) == 0) return error_ = EACCES;
      std::string next = (at == "/" ? "/" : at + "/") + name;
      n = resolve(next, &at);
      if (n == nullptr) return error_ = at.empty() ? ELOOP : ENOENT;
    }
    return 0;
  }

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) override {
    std::string p = clean(path);
    if (mode == OpenMode::CreateNew) {
      if (exists(p)) return error_ = EEXIST, nullptr;
      if (!isFolder(parentOf(p))) return error_ = ENOENT, nullptr;
      if (folderLocked(p)) return error_ = EPERM, nullptr;
      addFile(p);
    }
    Node* n = resolve(p);
    if (n == nullptr) return error_ = ENOENT, nullptr;
    if (n->kind != FileKind::File) return error_ = EISDIR, nullptr;
    if (mode != OpenMode::Read && (n->immutable || (n->mode & 0222) == 0))
      return error_ = EPERM, nullptr;
    return std::make_unique<File>(*n, mode != OpenMode::Read);
  }

  bool createFolder(const std::string& path) override {
    std::string p = clean(path);
    if (exists(p)) return refuse(EEXIST);
    if (!isFolder(parentOf(p))) return refuse(ENOENT);
    if (folderLocked(p)) return refuse(EPERM);
    addFolder(p);
    return true;
  }
  bool removeFile(const std::string& path) override {
    Node* n = node(path);
    if (n == nullptr) return refuse(ENOENT);
    if (n->kind == FileKind::Folder) return refuse(EISDIR);
    if (locked(*n) || folderLocked(path)) return refuse(EPERM);
    nodes_.erase(clean(path));
    hiddenListed.erase(clean(path));
    return true;
  }
  bool removeFolder(const std::string& path) override {
    std::string p = clean(path);
    Node* n = node(p);
    if (n == nullptr) return refuse(ENOENT);
    if (n->kind != FileKind::Folder) return refuse(ENOTDIR);
    if (locked(*n) || folderLocked(p)) return refuse(EPERM);
    if (!children(p).empty()) return refuse(ENOTEMPTY);
    nodes_.erase(p);
    hiddenListed.erase(p);
    return true;
  }
  bool rename(const std::string& from, const std::string& to) override {
    if (injected("rename")) return false;
    std::string f = clean(from), t = clean(to);
    Node* n = node(f);
    if (n == nullptr) return refuse(ENOENT);
    if (locked(*n) || folderLocked(f) || folderLocked(t)) return refuse(EPERM);
    if (!isFolder(parentOf(t))) return refuse(ENOENT);
    if (Node* old = node(t)) {
      if (locked(*old)) return refuse(EPERM);
      if (old->kind == FileKind::Folder && (n->kind != FileKind::Folder || !children(t).empty()))
        return refuse(n->kind == FileKind::Folder ? ENOTEMPTY : EISDIR);
      if (old->kind != FileKind::Folder && n->kind == FileKind::Folder) return refuse(ENOTDIR);
    }
    if (f == t) return true;
    if (t.compare(0, f.size() + 1, f + "/") == 0) return refuse(EINVAL);
    bool listed = hiddenListed.erase(f) > 0 || invisibleFlag(*n);
    hiddenListed.erase(t);
    if (listed) hiddenListed.insert(t);
    std::map<std::string, Node> moved;
    for (auto it = nodes_.begin(); it != nodes_.end();) {
      if (it->first == f || it->first.compare(0, f.size() + 1, f + "/") == 0) {
        moved[t + it->first.substr(f.size())] = std::move(it->second);
        it = nodes_.erase(it);
      } else {
        ++it;
      }
    }
    for (auto& [p, moving] : moved) nodes_[p] = std::move(moving);
    return true;
  }
  bool exchange(const std::string& a, const std::string& b) override {
    Node* na = node(a);
    Node* nb = node(b);
    if (na == nullptr || nb == nullptr) return refuse(ENOENT);
    if (locked(*na) || locked(*nb) || folderLocked(a) || folderLocked(b)) return refuse(EPERM);
    std::swap(*na, *nb);
    return true;
  }
  bool syncFolder(const std::string& folder) override {
    ++syncs;
    return isFolder(folder) || refuse(ENOENT);
  }
  int syncs = 0;

  std::string temporaryFolderFor(const std::string& path) override {
    return isFolder("/tmp") ? "/tmp" : parentOf(clean(path));
  }

  bool listFolder(const std::string& path, std::vector<FolderEntry>& entries) override {
    ++listings;
    entries.clear();
    Node* n = resolve(path);
    if (n == nullptr) return refuse(ENOENT);
    if (n->kind != FileKind::Folder) return refuse(ENOTDIR);
    for (const std::string& child : children(clean(path))) {
      const Node& item = nodes_[child];
      std::string name = child.substr(child.find_last_of('/') + 1);
      bool hidden = name[0] == '.' || hiddenListed.count(child) != 0;
      entries.push_back({std::move(name), item.kind, !item.fork.empty(), hidden});
    }
    return true;
  }

  std::optional<std::string> readLink(const std::string& path) override {
    Node* n = node(path);
    if (n == nullptr) return fail(ENOENT);
    if (n->kind != FileKind::Link) return fail(EINVAL);
    return n->data;
  }
  bool createLink(const std::string& target, const std::string& path) override {
    if (exists(path)) return refuse(EEXIST);
    if (!isFolder(parentOf(clean(path)))) return refuse(ENOENT);
    if (folderLocked(path)) return refuse(EPERM);
    addLink(path, target);
    return true;
  }

  bool copyFile(const std::string& from, const std::string& to, const CopyProgress& progress = {},
                size_t blockSize = 0) override {
    Node* n = resolve(from);
    if (n == nullptr) return refuse(ENOENT);
    if (n->kind != FileKind::File) return refuse(EINVAL);
    if (Node* old = node(to)) return refuse(locked(*old) ? EPERM : EEXIST);
    if (!isFolder(parentOf(clean(to)))) return refuse(ENOENT);
    if (folderLocked(to)) return refuse(EPERM);
    Node copy = *n;
    copy.immutable = false;
    if (injected("copyFile")) {
      copy.data.resize(copy.data.size() / 2);
      nodes_[clean(to)] = std::move(copy);
      return false;
    }
    size_t block = blockSize != 0 ? blockSize : size_t{1} << 20;
    for (uint64_t done = 0; done < copy.data.size();) {
      done = std::min<uint64_t>(done + block, copy.data.size());
      if (progress && !progress(done)) return refuse(ECANCELED);
    }
    copy.inode = ++inodes_;
    nodes_[clean(to)] = std::move(copy);
    return true;
  }

  bool setMode(const std::string& path, uint32_t mode) override {
    Node* n = resolve(path);
    if (n == nullptr) return refuse(ENOENT);
    n->mode = mode & 07777;
    return true;
  }
  bool isLocked(const std::string& path) override {
    Node* n = resolve(path);
    return n != nullptr && locked(*n);
  }
  bool setLocked(const std::string& path, bool on) override {
    Node* n = resolve(path);
    if (n == nullptr) return refuse(ENOENT);
    n->immutable = on;
    if (!on && (n->mode & 0222) == 0) n->mode |= 0200;
    return true;
  }
  bool isHidden(const std::string& path) override {
    std::string p = clean(path);
    std::string name = p.substr(p.find_last_of('/') + 1);
    if (!name.empty() && name[0] == '.') return true;
    return hiddenListed.count(p) != 0;
  }
  bool setHidden(const std::string& path, bool hidden) override {
    std::string p = clean(path);
    Node* n = node(p);
    if (n == nullptr) return refuse(ENOENT);
    if (n->kind != FileKind::Link && extendedAttributes) {
      FinderInfo f = n->finder.value_or(FinderInfo{});
      f.setFlags(hidden ? f.flags() | 0x4000 : f.flags() & ~0x4000);
      n->finder = f;
    }
    std::string name = p.substr(p.find_last_of('/') + 1);
    if (hidden && name[0] != '.')
      hiddenListed.insert(p);
    else
      hiddenListed.erase(p);
    return true;
  }

  std::optional<FinderInfo> finderInfo(const std::string& path) override {
    Node* n = resolve(path);
    if (n == nullptr) return fail(ENOENT);
    if (!extendedAttributes) return fail(ENOTSUP);
    if (!n->finder) return fail(ENODATA);
    return n->finder;
  }
  bool setFinderInfo(const std::string& path, const FinderInfo& info) override {
    Node* n = resolve(path);
    if (n == nullptr) return refuse(ENOENT);
    if (!extendedAttributes) return refuse(ENOTSUP);
    n->finder = info;
    return true;
  }
  std::optional<std::string> resourceFork(const std::string& path) override {
    Node* n = node(path);
    if (n == nullptr) return fail(ENOENT);
    return n->fork;
  }
  uint64_t resourceForkSize(const std::string& path) override {
    Node* n = node(path);
    return n == nullptr ? 0 : n->fork.size();
  }
  bool setResourceFork(const std::string& path, std::string_view data) override {
    Node* n = node(path);
    if (n == nullptr) return refuse(ENOENT);
    n->fork = std::string(data);
    return true;
  }

 private:
  class File final : public OpenFile {
   public:
    File(Node& n, bool writable) : node_(n), writable_(writable) {}
    int64_t read(void* buffer, size_t size) override {
      int64_t n = readAt(buffer, size, offset_);
      if (n > 0) offset_ += static_cast<uint64_t>(n);
      return n;
    }
    int64_t readAt(void* buffer, size_t size, uint64_t offset) override {
      if (offset >= node_.data.size()) return 0;
      size_t n = std::min<size_t>(size, node_.data.size() - offset);
      std::memcpy(buffer, node_.data.data() + offset, n);
      return static_cast<int64_t>(n);
    }
    bool write(const void* data, size_t size) override {
      if (!writeAt(data, size, offset_)) return false;
      offset_ += size;
      return true;
    }
    bool writeAt(const void* data, size_t size, uint64_t offset) override {
      if (!writable_) return false;
      if (node_.data.size() < offset + size) node_.data.resize(offset + size);
      std::memcpy(node_.data.data() + offset, data, size);
      return true;
    }
    std::optional<uint64_t> size() override { return node_.data.size(); }
    bool sync() override { return true; }
    int descriptor() const override { return -1; }

   private:
    Node& node_;
    bool writable_;
    uint64_t offset_ = 0;
  };

  static std::string clean(const std::string& path) {
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    return p;
  }
  static std::string parentOf(const std::string& p) {
    size_t slash = p.find_last_of('/');
    return slash == 0 || slash == std::string::npos ? "/" : p.substr(0, slash);
  }
  static bool locked(const Node& n) {
    return n.kind != FileKind::Link &&
           (n.immutable || ((n.kind == FileKind::File || n.kind == FileKind::Folder) &&
                            (n.mode & 0222) == 0));
  }
  bool folderLocked(const std::string& path) {
    Node* folder = resolve(parentOf(clean(path)));
    return folder != nullptr && locked(*folder);
  }
  static bool invisibleFlag(const Node& n) { return n.finder && (n.finder->flags() & 0x4000); }

  // The node a path leads to, its links followed; `reached`, when given, receives the path of
  // that node ("" after eight links: a loop).
  Node* resolve(const std::string& path, std::string* reached = nullptr) {
    std::string p = clean(path);
    for (int hops = 0; hops < 8; ++hops) {
      Node* n = node(p);
      if (reached != nullptr) *reached = p;
      if (n == nullptr || n->kind != FileKind::Link) return n;
      p = clean(n->data.empty() || n->data[0] == '/' ? n->data : parentOf(p) + "/" + n->data);
    }
    if (reached != nullptr) reached->clear();
    return nullptr;
  }
  bool injected(const std::string& operation) {
    auto it = failNext.find(operation);
    if (it == failNext.end()) return false;
    error_ = it->second;
    failNext.erase(it);
    return true;
  }
  bool isFolder(const std::string& path) {
    Node* n = resolve(path);
    return n != nullptr && n->kind == FileKind::Folder;
  }
  std::vector<std::string> children(const std::string& folder) {
    std::string prefix = folder == "/" ? "/" : folder + "/";
    std::vector<std::string> out;
    for (auto it = nodes_.lower_bound(prefix); it != nodes_.end(); ++it) {
      if (it->first.compare(0, prefix.size(), prefix) != 0) break;
      if (it->first.size() > prefix.size() &&
          it->first.find('/', prefix.size()) == std::string::npos)
        out.push_back(it->first);
    }
    return out;
  }
  bool refuse(int e) {
    error_ = e;
    return false;
  }
  std::nullopt_t fail(int e) {
    error_ = e;
    return std::nullopt;
  }

  std::map<std::string, Node> nodes_;
  uint64_t inodes_ = 1;
  int error_ = 0;
};

}  // namespace tessel::platform
