// Paths, special folders and volumes: what the method layer calls.
//
// The Xtra speaks two path styles. HFS paths ("Volume:Folder:File", a trailing ":" for a folder)
// always begin with a volume name; Unix paths begin with "/" and are Linux paths, "/Volumes/NAME/"
// also naming a volume. On Linux the volumes are the start-up volume ("/") and the user-visible
// mounted filesystems; see volume_model.h.
//
// All functions return unbounded std::strings; the method layer cuts results to its buffers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tessel::paths {

// ---- The style switch -----------------------------------------------------------------------------

// When on, every method that returns a path returns a Unix path; off (HFS paths) when a session
// starts (it is part of the module's session, support/session.h).
bool returnUnixNames();
void setReturnUnixNames(bool on);

// Starts a new Lingo call: the next question about volumes reads the mount table afresh, and
// every later one in the same call reuses that reading.
void beginCall();

// ---- Styles and conversions -------------------------------------------------------------------------

bool isUnixPath(std::string_view path);
void addTrailingSeparator(std::string& path);
void stripTrailingSeparator(std::string& path);

// The other style's form of a path, through the volume model whether or not the item exists
// (a folder with its trailing separator); only a volume that is not mounted gives the textual
// forms ("Nowhere:a" and "/Volumes/Nowhere/a").
std::string toUnixPath(std::string_view path);
std::string toHfsPath(std::string_view path);
// Every component in its long (UTF-8) or short (Mac OS Roman) form; "" when a component is
// missing. A Unix path is taken in its HFS form first.
std::string longPathName(std::string_view hfsPath);
std::string shortPathName(std::string_view hfsPath);

// The file layer's resolution of a path of either style to the Linux file-system path it names:
// "Vol:a:b" → mount point of Vol + "/a/b"; "/Volumes/Vol/a" → mount point of Vol + "/a"; any
// other Unix path as it is. "" when an HFS path names no mounted volume.
std::string nativePath(std::string_view path);

// A Linux file-system path in the style the switch selects (a folder with its trailing
// separator when `folder` is true).
std::string fromNative(std::string_view native, bool folder);

// ---- Lingo methods -----------------------------------------------------------------------------------

std::string shortFileName(std::string_view file);  // Mac OS Roman
std::string longFileName(std::string_view file);
std::string unixName(std::string_view file);
std::string hfsName(std::string_view file);

// The folder for a keyword ("prefs", "user fonts", "temp", a raw four-character type...), in
// the current style; "" when there is none.
std::string sysFolder(std::string_view keyword);

// "type" gives a type word, "size"/"free" an integer (thousands of bytes), other words 0.
std::variant<int32_t, std::string> diskInfo(std::string_view drive, std::string_view infoType);
std::vector<std::string> diskList();
int32_t ejectDisk(std::string_view disk);

}  // namespace tessel::paths
