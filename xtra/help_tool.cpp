// The "Tessel Help" tool-menu entry: in the authoring environment it opens the help document.
#include <string>

#include "paths/paths.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/launcher.h"
#include "xtra/module.h"

namespace tessel::xtra {
namespace {

bool exists(const std::string& path, bool folder) {
  auto kind = platform::fileService().kind(path);
  return kind && (*kind == platform::FileKind::Folder) == folder;
}

// Hands a file or folder to the desktop's default application for it, through the launcher, so
// a desktop that does not answer holds the host no longer than any other launch.
void openWithDefaultApplication(const std::string& path) {
  platform::launcherService().openDocument(path);
}

}  // namespace

void openHelpDocument() {
  // The document beside the module...
  std::string folder = platform::environmentService().moduleFolder();
  if (!folder.empty()) {
    std::string document = folder + "Tessel Help.html";
    if (exists(document, false)) {
      openWithDefaultApplication(document);
      return;
    }
  }
  // ...else the installed help: Help/Tessel.help in the system's help folder.
  std::string info = paths::sysFolder("info");
  if (info.size() > 994) info.resize(994);  // the folder's path buffer
  info = paths::nativePath(info);
  if (info.empty()) return;
  paths::addTrailingSeparator(info);
  std::string installed = info + "Help/Tessel.help";
  if (exists(installed, true)) openWithDefaultApplication(installed);
}

MoaError CTool_IMoaMmXTool::Invoke() {
  // The tool's own host says whether it is authoring; no scripting instance need be alive.
  if (hostIsAuthoring(owner_->pCallback)) openHelpDocument();
  return kMoaErr_NoErr;
}

MoaError CTool_IMoaMmXTool::GetEnabled(MoaLong* enabled) {
  if (enabled) *enabled = 1;
  return kMoaErr_NoErr;
}

}  // namespace tessel::xtra
