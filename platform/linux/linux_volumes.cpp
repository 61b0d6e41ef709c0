// The volume service on Linux: GIO's unix-mount API for the mount table and its file-manager
// rules, statvfs for sizes, and umount2(2) (as root) or UDisks2 over D-Bus for ejecting.
#include <fcntl.h>
#include <gio/gio.h>
#include <gio/gunixmounts.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "platform/volumes.h"

namespace tessel::platform {
namespace {

// GLib 2.84 renamed the mount-entry functions; keep one spelling here.
#if GLIB_CHECK_VERSION(2, 84, 0)
const char* mountPath(GUnixMountEntry* m) { return g_unix_mount_entry_get_mount_path(m); }
const char* devicePath(GUnixMountEntry* m) { return g_unix_mount_entry_get_device_path(m); }
const char* fsTypeOf(GUnixMountEntry* m) { return g_unix_mount_entry_get_fs_type(m); }
bool shouldDisplay(GUnixMountEntry* m) { return g_unix_mount_entry_guess_should_display(m); }
bool canEject(GUnixMountEntry* m) { return g_unix_mount_entry_guess_can_eject(m); }
char* guessName(GUnixMountEntry* m) { return g_unix_mount_entry_guess_name(m); }
GList* readMountTable() { return g_unix_mount_entries_get(nullptr); }
void freeEntry(gpointer m) { g_unix_mount_entry_free(static_cast<GUnixMountEntry*>(m)); }
#else
const char* mountPath(GUnixMountEntry* m) { return g_unix_mount_get_mount_path(m); }
const char* devicePath(GUnixMountEntry* m) { return g_unix_mount_get_device_path(m); }
const char* fsTypeOf(GUnixMountEntry* m) { return g_unix_mount_get_fs_type(m); }
bool shouldDisplay(GUnixMountEntry* m) { return g_unix_mount_guess_should_display(m); }
bool canEject(GUnixMountEntry* m) { return g_unix_mount_guess_can_eject(m); }
char* guessName(GUnixMountEntry* m) { return g_unix_mount_guess_name(m); }
GList* readMountTable() { return g_unix_mounts_get(nullptr); }
void freeEntry(gpointer m) { g_unix_mount_free(static_cast<GUnixMountEntry*>(m)); }
#endif

std::string text(const char* s) { return s != nullptr ? std::string(s) : std::string(); }

bool startsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// The path with every symbolic link resolved; "" when it can't be.
std::string realPath(const std::string& path) {
  char* real = ::realpath(path.c_str(), nullptr);
  if (real == nullptr) return "";
  std::string result = real;
  std::free(real);
  return result;
}

std::string baseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

// The first line of a small sysfs file.
std::string readSysfs(const std::string& path) {
  gchar* contents = nullptr;
  if (!g_file_get_contents(path.c_str(), &contents, nullptr, nullptr)) return "";
  std::string value = contents;
  g_free(contents);
  size_t end = value.find('\n');
  if (end != std::string::npos) value.resize(end);
  return value;
}

// udev writes unsafe characters of labels as "\xHH" in /dev/disk/by-label.
std::string unescapeUdev(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (size_t i = 0; i < name.size(); ++i) {
    if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x' &&
        g_ascii_isxdigit(name[i + 2]) && g_ascii_isxdigit(name[i + 3])) {
      out.push_back(static_cast<char>(g_ascii_xdigit_value(name[i + 2]) * 16 +
                                      g_ascii_xdigit_value(name[i + 3])));
      i += 3;
    } else {
      out.push_back(name[i]);
    }
  }
  return out;
}

// The filesystem label of the root filesystem, found among udev's /dev/disk/by-label links by
// device number (or by the device the mount table names); "" when it has none.
std::string rootLabel(const std::string& rootDevice) {
  struct stat root {};
  if (::stat("/", &root) != 0) return "";
  std::string realRootDevice = startsWith(rootDevice, "/dev/") ? realPath(rootDevice) : "";
  GDir* dir = g_dir_open("/dev/disk/by-label", 0, nullptr);
  if (dir == nullptr) return "";
  std::string label;
  while (const char* entry = g_dir_read_name(dir)) {
    std::string link = std::string("/dev/disk/by-label/") + entry;
    struct stat st {};
    if (::stat(link.c_str(), &st) != 0 || !S_ISBLK(st.st_mode)) continue;
    if (st.st_rdev == root.st_dev ||
        (!realRootDevice.empty() && realPath(link) == realRootDevice)) {
      label = unescapeUdev(entry);
      break;
    }
  }
  g_dir_close(dir);
  return label;
}

bool isNetworkFilesystem(const std::string& fsType, const std::string& device) {
  static constexpr std::string_view kTypes[] = {
      "nfs",         "nfs4",      "cifs",       "smb3",        "smbfs",          "ncpfs",
      "afs",         "9p",        "ceph",       "glusterfs",   "fuse.glusterfs", "davfs",
      "fuse.davfs2", "sshfs",     "fuse.sshfs", "fuse.rclone", "fuse.s3fs",      "fuse.gcsfuse",
      "lustre",      "beegfs",    "gpfs",       "orangefs",    "pvfs2",          "coda",
      "afpfs",       "fuse.afpfs"};
  for (std::string_view t : kTypes)
    if (fsType == t) return true;
  // "//server/share" (SMB) and "server:/export" (NFS) devices, whatever the type says.
  if (startsWith(device, "//")) return true;
  size_t colon = device.find(":/");
  return !device.empty() && device[0] != '/' && colon != std::string::npos && colon > 0;
}

// A block device is ejectable when it is a disk image (loop device), an optical drive, or a
// disk that the kernel marks removable; GIO adds what it recognises (optical media, players).
bool isEjectable(GUnixMountEntry* entry, const std::string& device, const std::string& fsType) {
  if (canEject(entry) || fsType == "iso9660" || fsType == "udf") return true;
  if (!startsWith(device, "/dev/")) return false;
  std::string real = realPath(device);
  if (real.empty()) return false;
  std::string name = baseName(real);
  if (startsWith(name, "loop") || startsWith(name, "sr")) return true;
  std::string sys = realPath("/sys/class/block/" + name);
  if (sys.empty()) return false;
  if (exists(sys + "/partition")) sys = sys.substr(0, sys.rfind('/'));  // the whole disk
  return readSysfs(sys + "/removable") == "1";
}

// ---- Ejecting ---------------------------------------------------------------------------------

constexpr const char* kUDisks = "org.freedesktop.UDisks2";
constexpr int kQuickTimeoutMs = 10'000;
constexpr int kSlowTimeoutMs = 120'000;  // flushing a slow stick before unmounting takes time

GVariant* emptyOptions() {
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
  return g_variant_new("(a{sv})", &builder);
}

// Calls a UDisks2 method; true when it succeeded.
bool callUDisks(GDBusConnection* bus, const std::string& object, const char* interface,
                const char* method, GVariant* args, int timeoutMs) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, kUDisks, object.c_str(), interface, method, args, nullptr,
      G_DBUS_CALL_FLAGS_ALLOW_INTERACTIVE_AUTHORIZATION, timeoutMs, nullptr, &error);
  if (reply == nullptr) {
    g_clear_error(&error);
    return false;
  }
  g_variant_unref(reply);
  return true;
}

// A property of a UDisks2 object (the caller unrefs it), or nullptr.
GVariant* udisksProperty(GDBusConnection* bus, const std::string& object, const char* interface,
                         const char* name) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, kUDisks, object.c_str(), "org.freedesktop.DBus.Properties", "Get",
      g_variant_new("(ss)", interface, name), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
      kQuickTimeoutMs, nullptr, &error);
  if (reply == nullptr) {
    g_clear_error(&error);
    return nullptr;
  }
  GVariant* value = nullptr;
  g_variant_get(reply, "(v)", &value);
  g_variant_unref(reply);
  return value;
}

bool booleanProperty(GDBusConnection* bus, const std::string& object, const char* interface,
                     const char* name) {
  GVariant* value = udisksProperty(bus, object, interface, name);
  if (value == nullptr) return false;
  bool result = g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
  g_variant_unref(value);
  return result;
}

// UDisks2's object for a block device, or "".
std::string udisksBlockObject(GDBusConnection* bus, const std::string& device) {
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, kUDisks, "/org/freedesktop/UDisks2/Manager", "org.freedesktop.UDisks2.Manager",
      "ResolveDevice", g_variant_new_parsed("({'path': <%s>}, @a{sv} {})", device.c_str()),
      G_VARIANT_TYPE("(ao)"), G_DBUS_CALL_FLAGS_NONE, kQuickTimeoutMs, nullptr, &error);
  if (reply == nullptr) {
    g_clear_error(&error);
    return "";
  }
  std::string object;
  GVariantIter* iter = nullptr;
  g_variant_get(reply, "(ao)", &iter);
  const char* path = nullptr;
  if (g_variant_iter_next(iter, "&o", &path)) object = path;
  g_variant_iter_free(iter);
  g_variant_unref(reply);
  return object;
}

// Unmounts through UDisks2 (with the desktop's authorisation rules), then detaches a disk image,
// or ejects or powers off the drive when it allows. True when the unmount succeeded.
bool ejectThroughUDisks(const std::string& device) {
  GError* error = nullptr;
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
  if (bus == nullptr) {
    g_clear_error(&error);
    return false;
  }
  bool unmounted = false;
  std::string block = udisksBlockObject(bus, device);
  if (!block.empty() && callUDisks(bus, block, "org.freedesktop.UDisks2.Filesystem", "Unmount",
                                   emptyOptions(), kSlowTimeoutMs)) {
    unmounted = true;
    if (GVariant* backing =
            udisksProperty(bus, block, "org.freedesktop.UDisks2.Loop", "BackingFile")) {
      g_variant_unref(backing);
      callUDisks(bus, block, "org.freedesktop.UDisks2.Loop", "Delete", emptyOptions(),
                 kQuickTimeoutMs);
    } else if (GVariant* drive =
                   udisksProperty(bus, block, "org.freedesktop.UDisks2.Block", "Drive")) {
      std::string driveObject = g_variant_is_of_type(drive, G_VARIANT_TYPE_OBJECT_PATH)
                                    ? g_variant_get_string(drive, nullptr)
                                    : "/";
      g_variant_unref(drive);
      // UDisks itself refuses while other filesystems of the drive are still mounted.
      if (driveObject != "/") {
        constexpr const char* kDrive = "org.freedesktop.UDisks2.Drive";
        if (booleanProperty(bus, driveObject, kDrive, "Ejectable"))
          callUDisks(bus, driveObject, kDrive, "Eject", emptyOptions(), kSlowTimeoutMs);
        else if (booleanProperty(bus, driveObject, kDrive, "CanPowerOff"))
          callUDisks(bus, driveObject, kDrive, "PowerOff", emptyOptions(), kSlowTimeoutMs);
      }
    }
  }
  g_object_unref(bus);
  return unmounted;
}

// Runs a helper program (found on PATH) quietly; true when it exits with 0.
bool runQuietly(std::initializer_list<const char*> args) {
  std::vector<char*> argv;
  for (const char* a : args) argv.push_back(const_cast<char*>(a));
  argv.push_back(nullptr);
  gint status = 0;
  GError* error = nullptr;
  bool ran =
      g_spawn_sync(nullptr, argv.data(), nullptr,
                   static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL |
                                            G_SPAWN_STDERR_TO_DEV_NULL),
                   nullptr, nullptr, nullptr, nullptr, &status, &error);
  if (!ran) {
    g_clear_error(&error);
    return false;
  }
#if GLIB_CHECK_VERSION(2, 70, 0)
  return g_spawn_check_wait_status(status, nullptr);
#else
  return g_spawn_check_exit_status(status, nullptr);
#endif
}

// After root has unmounted a disk image, detaches its loop device. The kernel defers the
// detachment while anything else still holds the device.
void detachLoopDevice(const std::string& device) {
  std::string real = realPath(device);
  std::string name = baseName(real);
  if (!startsWith(real, "/dev/loop") || name.size() <= 4 ||
      name.find_first_not_of("0123456789", 4) != std::string::npos)
    return;
  int fd = ::open(real.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  ::ioctl(fd, LOOP_CLR_FD, 0);
  ::close(fd);
}

bool isBlockDevice(const std::string& device) {
  struct stat st {};
  return startsWith(device, "/dev/") && ::stat(device.c_str(), &st) == 0 && S_ISBLK(st.st_mode);
}

class LinuxVolumeService final : public VolumeService {
 public:
  std::vector<MountedVolume> mountedVolumes() override {
    MountedVolume root;
    root.mountPoint = "/";
    std::vector<MountedVolume> volumes;
    std::unordered_map<std::string, size_t> byMountPoint;

    GList* mounts = readMountTable();
    for (GList* l = mounts; l != nullptr; l = l->next) {
      auto* entry = static_cast<GUnixMountEntry*>(l->data);
      std::string path = text(mountPath(entry));
      MountedVolume v;
      v.device = text(devicePath(entry));
      v.fsType = text(fsTypeOf(entry));
      v.network = isNetworkFilesystem(v.fsType, v.device);
      if (path == "/") {
        // The last "/" in the table is the one in effect.
        root.device = v.device;
        root.fsType = v.fsType;
        root.network = v.network;
        root.ejectable = !v.network && isEjectable(entry, v.device, v.fsType);
        continue;
      }
      if (!shouldDisplay(entry)) continue;
      v.mountPoint = path;
      v.ejectable = !v.network && isEjectable(entry, v.device, v.fsType);
      if (char* name = guessName(entry)) {
        v.name = name;
        g_free(name);
      }
      // A mount stacked on an earlier one hides it: keep the place, take the newer mount.
      auto [it, added] = byMountPoint.emplace(path, volumes.size());
      if (added)
        volumes.push_back(std::move(v));
      else
        volumes[it->second] = std::move(v);
    }
    g_list_free_full(mounts, freeEntry);

    root.name = rootLabel(root.device);
    volumes.insert(volumes.begin(), std::move(root));
    return volumes;
  }

  std::optional<VolumeSpace> space(const std::string& mountPoint) override {
    struct statvfs fs {};
    if (::statvfs(mountPoint.c_str(), &fs) != 0) return std::nullopt;
    uint64_t unit = fs.f_frsize != 0 ? fs.f_frsize : fs.f_bsize;
    return VolumeSpace{static_cast<uint64_t>(fs.f_blocks) * unit,
                       static_cast<uint64_t>(fs.f_bavail) * unit};
  }

  void eject(const MountedVolume& volume) override {
    if (volume.mountPoint.empty() || volume.mountPoint == "/") return;
    const char* mountPoint = volume.mountPoint.c_str();
    if (::geteuid() == 0) {
      if (::umount2(mountPoint, UMOUNT_NOFOLLOW) == 0) {
        detachLoopDevice(volume.device);
        return;
      }
      if (errno != EPERM) return;  // busy or gone: nothing else would do better
    }
    if (isBlockDevice(volume.device) && ejectThroughUDisks(volume.device)) return;
    if (startsWith(volume.fsType, "fuse") && (runQuietly({"fusermount3", "-u", mountPoint}) ||
                                              runQuietly({"fusermount", "-u", mountPoint})))
      return;
    // Mounts that /etc/fstab lets users unmount ("user", "users").
    runQuietly({"umount", mountPoint});
  }
};

}  // namespace

std::unique_ptr<VolumeService> makeLinuxVolumeService() {
  return std::make_unique<LinuxVolumeService>();
}

}  // namespace tessel::platform
