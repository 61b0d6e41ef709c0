// The Lingo call dispatcher: method number (its place in the method table, from 1) to operation.
#include <algorithm>

#include "xtra/module.h"

namespace tessel::xtra {
namespace {

using T = TStdXtra_IMoaMmXScript;
using Operation = MoaError (T::*)(PMoaMmCallInfo);

// In method-table order; each entry reaches its operation through the class's own table.
constexpr Operation kOperations[] = {
    nullptr,
    // Information
    &T::tsVersion, &T::tsSysFolder, &T::tsDiskInfo, &T::tsDiskList, &T::tsMemoryInfo,
    &T::tsFindApp, &T::tsReadIni, &T::tsWriteIni, &T::tsFontInstalled, &T::tsGestalt,
    &T::tsGestaltExists,
    // System
    &T::tsSetWallpaper, &T::tsSetDisplay, &T::tsMultiDisplayList, &T::tsMultiDisplayInfo,
    &T::tsSetMultiDisplay, &T::tsRunProgram, &T::tsMsgBox, &T::tsMsgBoxButtons, &T::tsMsgBoxEx,
    &T::tsPrompt, &T::tsLogIn, &T::tsHideTaskBar, &T::tsDisableSwitching, &T::tsCopyText,
    &T::tsPasteText, &T::tsEncryptText, &T::tsDecryptText, &T::tsPlaceCursor, &T::tsSetVolume,
    &T::tsGetVolume, &T::tsUserName, &T::tsUserShortName, &T::tsComputerName, &T::tsLanguage,
    &T::tsKeyIsDown, &T::tsEjectDisk, &T::tsSystemTime,
    // Files
    &T::tsFileExists, &T::tsFileAge, &T::tsFileVersion, &T::tsFolderExists, &T::tsIsBundle,
    &T::tsCreateFolder, &T::tsDeleteFolder, &T::tsDeleteFile, &T::tsDeleteXFiles, &T::tsXDelete,
    &T::tsFileSize, &T::tsFileSizeEx, &T::tsFileDate, &T::tsFileDateEx, &T::tsFileAttributes,
    &T::tsSetFileAttributes, &T::tsCopyFile, &T::tsCopyFileProgress, &T::tsCopyXFilesProgress,
    &T::tsXCopyProgress, &T::tsFolderSize, &T::tsCopyXFiles, &T::tsXCopy, &T::tsRenameFile,
    &T::tsFileList, &T::tsFolderList, &T::tsFindFirstFile, &T::tsFindNextFile, &T::tsFindClose,
    &T::tsGetFilename, &T::tsGetFolder, &T::tsGetDisk, &T::tsGetFiles, &T::tsEncryptFile,
    &T::tsOpenFile, &T::tsPrintFile, &T::tsShortFileName, &T::tsLongFileName,
    &T::tsReturnUnixNames, &T::tsUnixName, &T::tsHFSName, &T::tsOpenURL, &T::tsShell,
    &T::tsMakeShortcut, &T::tsFileCreator, &T::tsFileType, &T::tsSetFileInfo,
    &T::tsFilePermissions, &T::tsSetFilePermissions, &T::tsRefreshFiles, &T::tsBundleApp,
    // Windows
    &T::tsFindWindow, &T::tsWindowInfo, &T::tsActiveWindow, &T::tsCloseWindow,
    &T::tsActivateWindow, &T::tsWaitForWindow, &T::tsNextActiveWindow, &T::tsWindowExists,
    &T::tsWindowList, &T::tsSendKeys, &T::tsMouseClick, &T::tsWinHandle,
};
static_assert(sizeof(kOperations) / sizeof(kOperations[0]) == 102);

}  // namespace

MoaError TStdXtra_IMoaMmXScript::Call(PMoaMmCallInfo call) {
  const MoaLong selector = call->methodSelector;
  // A number outside the table is no error: the result stays VOID.
  if (selector < 1 || selector > 101) return kMoaErr_NoErr;
  const Operation operation = kOperations[static_cast<size_t>(selector)];
  // Served through this instance's host; the one served before comes back afterwards (this may be
  // a call from a handler that runs inside another instance's call), unless it ended meanwhile.
  ModuleState& state = moduleState();
  MoaObjectHeader* const before = state.scriptInstance;
  if (before != owner_) serveThrough(owner_);
  const MoaError err = (this->*operation)(call);
  if (state.scriptInstance != before) {
    const auto& live = state.scriptInstances;
    const bool alive = std::find(live.begin(), live.end(), before) != live.end();
    serveThrough(alive ? before : live.empty() ? nullptr : live.back());
  }
  return err;
}

}  // namespace tessel::xtra
