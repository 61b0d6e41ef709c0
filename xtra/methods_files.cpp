// Lingo methods 39-89: files and folders.
#include "dialogs/selectors.h"
#include "files/copy_engine.h"
#include "files/file_queries.h"
#include "files/file_search.h"
#include "files/listings.h"
#include "files/progress_copy.h"
#include "formats/cipher.h"
#include "formats/dates.h"
#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "system/programs.h"
#include "xtra/marshal.h"

namespace tessel::xtra {

using T = TStdXtra_IMoaMmXScript;

namespace {

// The common shapes: one path in, an integer or a text out.
template <typename Worker>
MoaError pathToInteger(PMoaMmCallInfo info, Worker worker) {
  return runMethod(info, [&](MethodCall& call) -> MoaError {
    std::string path;
    if (MoaError err = call.path(1, path)) return err;
    return call.returnInteger(worker(path));
  });
}

template <typename Worker>
MoaError pathToText(PMoaMmCallInfo info, Worker worker, size_t limit) {
  return runMethod(info, [&](MethodCall& call) -> MoaError {
    std::string path;
    if (MoaError err = call.path(1, path)) return err;
    return call.returnText(worker(path), limit);
  });
}

// A four-character code as text, "" when there is none.
std::string codeText(bool found, uint32_t code) {
  return found ? support::writeFourCharCode(code) : std::string();
}

// An empty Type or Creator stands for the code 0.
uint32_t codeOf(const std::string& text) {
  return text.empty() ? 0 : support::readFourCharCode(text);
}

}  // namespace

MoaError T::tsFileExists(PMoaMmCallInfo info) { return pathToInteger(info, files::fileExists); }
MoaError T::tsFileAge(PMoaMmCallInfo info) { return pathToInteger(info, formats::fileAge); }
MoaError T::tsFolderExists(PMoaMmCallInfo info) {
  return pathToInteger(info, files::folderExists);
}
MoaError T::tsIsBundle(PMoaMmCallInfo info) { return pathToInteger(info, files::isBundle); }
MoaError T::tsCreateFolder(PMoaMmCallInfo info) {
  return pathToInteger(info, files::createFolder);
}
MoaError T::tsDeleteFolder(PMoaMmCallInfo info) {
  return pathToInteger(info, files::deleteFolder);
}
MoaError T::tsDeleteFile(PMoaMmCallInfo info) { return pathToInteger(info, files::deleteFile); }
MoaError T::tsFileSize(PMoaMmCallInfo info) { return pathToInteger(info, files::fileSize); }
MoaError T::tsEncryptFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, key;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, key, kShortLen)) return err;
    return call.returnInteger(formats::encryptFile(file, key));
  });
}

MoaError T::tsFileVersion(PMoaMmCallInfo info) {
  return pathToText(info, files::fileVersion, kShortLen);
}
MoaError T::tsFileAttributes(PMoaMmCallInfo info) {
  return pathToText(info, files::fileAttributes, kShortLen);
}
MoaError T::tsBundleApp(PMoaMmCallInfo info) {
  return pathToText(info, files::bundleApp, kPathLen);
}
MoaError T::tsLongFileName(PMoaMmCallInfo info) {
  return pathToText(info, paths::longFileName, kPathLen);
}
MoaError T::tsUnixName(PMoaMmCallInfo info) { return pathToText(info, paths::unixName, kPathLen); }
MoaError T::tsHFSName(PMoaMmCallInfo info) { return pathToText(info, paths::hfsName, kPathLen); }

MoaError T::tsShortFileName(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file;
    if (MoaError err = call.path(1, file)) return err;
    return call.returnRomanText(paths::shortFileName(file), kPathLen);
  });
}

MoaError T::tsFileSizeEx(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file;
    if (MoaError err = call.path(1, file)) return err;
    return call.returnFloat(files::fileSizeEx(file));
  });
}

MoaError T::tsDeleteXFiles(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string folder, spec;
    if (MoaError err = call.path(1, folder)) return err;
    if (MoaError err = call.text(2, spec, kShortLen)) return err;
    return call.returnInteger(files::deleteXFiles(folder, spec));
  });
}

MoaError T::tsXDelete(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string folder, spec;
    if (MoaError err = call.path(1, folder)) return err;
    if (MoaError err = call.text(2, spec, kShortLen)) return err;
    return call.returnInteger(files::xDelete(folder, spec));
  });
}

MoaError T::tsFileDate(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, dateFormat, timeFormat;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, dateFormat, kShortLen)) return err;
    if (MoaError err = call.text(3, timeFormat, kShortLen)) return err;
    return call.returnText(formats::fileDate(file, dateFormat, timeFormat), 300);
  });
}

MoaError T::tsFileDateEx(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, dateType, dateFormat, timeFormat;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, dateType)) return err;
    if (MoaError err = call.text(3, dateFormat, kShortLen)) return err;
    if (MoaError err = call.text(4, timeFormat, kShortLen)) return err;
    return call.returnText(formats::fileDateEx(file, dateType, dateFormat, timeFormat), 300);
  });
}

MoaError T::tsSetFileAttributes(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, attributes;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, attributes)) return err;
    return call.returnInteger(files::setFileAttributes(file, attributes));
  });
}

MoaError T::tsCopyFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, overwrite;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, overwrite)) return err;
    return call.returnInteger(files::copyFile(source, dest, overwrite));
  });
}

MoaError T::tsCopyFileProgress(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, overwrite, title, button;
    int32_t flags = 0;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, overwrite)) return err;
    if (MoaError err = call.text(4, title, kShortLen)) return err;
    if (MoaError err = call.text(5, button, kShortLen)) return err;
    if (MoaError err = call.integer(6, flags)) return err;
    return call.returnInteger(
        files::copyFileProgress(source, dest, overwrite, title, button, flags));
  });
}

MoaError T::tsCopyXFilesProgress(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, spec, overwrite, title, button;
    int32_t flags = 0;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, spec, kShortLen)) return err;
    if (MoaError err = call.text(4, overwrite)) return err;
    if (MoaError err = call.text(5, title, kShortLen)) return err;
    if (MoaError err = call.text(6, button, kShortLen)) return err;
    if (MoaError err = call.integer(7, flags)) return err;
    return call.returnInteger(
        files::copyXFilesProgress(source, dest, spec, overwrite, title, button, flags));
  });
}

MoaError T::tsXCopyProgress(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, spec, overwrite, title, button;
    int32_t makeDirs = 0, flags = 0;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, spec, kShortLen)) return err;
    if (MoaError err = call.text(4, overwrite)) return err;
    if (MoaError err = call.integer(5, makeDirs)) return err;
    if (MoaError err = call.text(6, title, kShortLen)) return err;
    if (MoaError err = call.text(7, button, kShortLen)) return err;
    if (MoaError err = call.integer(8, flags)) return err;
    return call.returnInteger(
        files::xCopyProgress(source, dest, spec, overwrite, makeDirs, title, button, flags));
  });
}

MoaError T::tsFolderSize(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string folder, type;
    int32_t subFolders = 0;
    if (MoaError err = call.path(1, folder)) return err;
    if (MoaError err = call.text(2, type, kShortLen)) return err;
    if (MoaError err = call.integer(3, subFolders)) return err;
    return call.returnInteger(files::folderSize(folder, type, subFolders));
  });
}

MoaError T::tsCopyXFiles(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, spec, overwrite;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, spec, kShortLen)) return err;
    if (MoaError err = call.text(4, overwrite)) return err;
    return call.returnInteger(files::copyXFiles(source, dest, spec, overwrite));
  });
}

MoaError T::tsXCopy(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string source, dest, spec, overwrite;
    int32_t makeDirs = 0;
    if (MoaError err = call.path(1, source)) return err;
    if (MoaError err = call.path(2, dest)) return err;
    if (MoaError err = call.text(3, spec, kShortLen)) return err;
    if (MoaError err = call.text(4, overwrite)) return err;
    if (MoaError err = call.integer(5, makeDirs)) return err;
    return call.returnInteger(files::xCopy(source, dest, spec, overwrite, makeDirs));
  });
}

MoaError T::tsRenameFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, newName;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.path(2, newName)) return err;
    return call.returnInteger(files::renameFile(file, newName));
  });
}

MoaError T::tsFileList(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string folder, type;
    if (MoaError err = call.path(1, folder)) return err;
    if (MoaError err = call.text(2, type, kShortLen)) return err;
    return call.returnList(files::fileList(folder, type));
  });
}

MoaError T::tsFolderList(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string folder;
    if (MoaError err = call.path(1, folder)) return err;
    return call.returnList(files::folderList(folder));
  });
}

MoaError T::tsFindFirstFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string disk, name;
    if (MoaError err = call.path(1, disk)) return err;
    if (MoaError err = call.text(2, name, kShortLen)) return err;
    return call.returnText(files::findFirstFile(disk, name), kPathLen);
  });
}

MoaError T::tsFindNextFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnText(files::findNextFile(), kPathLen);
  });
}

MoaError T::tsFindClose(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    files::findClose();
    return call.returnNothing();
  });
}

MoaError T::tsGetFilename(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    dialogs::GetFilenameOptions o;
    if (MoaError err = call.text(1, o.operation)) return err;
    if (MoaError err = call.path(2, o.startDir)) return err;
    if (MoaError err = call.text(3, o.filename, kShortLen)) return err;
    if (MoaError err = call.text(4, o.filter, kShortLen)) return err;
    if (MoaError err = call.integer(5, o.flags)) return err;
    if (MoaError err = call.text(6, o.instruction, kShortLen)) return err;
    if (MoaError err = call.integer(7, o.noFolders)) return err;
    if (MoaError err = call.integer(8, o.x)) return err;
    if (MoaError err = call.integer(9, o.y)) return err;
    bool several = false;
    std::vector<std::string> chosen = dialogs::getFilename(o, several);
    if (several) return call.returnList(chosen);
    return call.returnText(chosen.empty() ? std::string() : chosen.front(), kPathLen);
  });
}

MoaError T::tsGetFolder(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string startDir, instruction, title;
    int32_t flags = 0, x = 0, y = 0;
    if (MoaError err = call.path(1, startDir)) return err;
    if (MoaError err = call.text(2, instruction, kShortLen)) return err;
    if (MoaError err = call.integer(3, flags)) return err;
    if (MoaError err = call.text(4, title, kShortLen)) return err;
    if (MoaError err = call.integer(5, x)) return err;
    if (MoaError err = call.integer(6, y)) return err;
    return call.returnText(dialogs::getFolder(startDir, instruction, flags, title, x, y),
                           kPathLen);
  });
}

MoaError T::tsGetDisk(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string disk, instruction;
    int32_t flags = 0, x = 0, y = 0;
    if (MoaError err = call.path(1, disk)) return err;
    if (MoaError err = call.text(2, instruction, kShortLen)) return err;
    if (MoaError err = call.integer(3, flags)) return err;
    if (MoaError err = call.integer(4, x)) return err;
    if (MoaError err = call.integer(5, y)) return err;
    return call.returnText(dialogs::getDisk(disk, instruction, flags, x, y), kPathLen);
  });
}

MoaError T::tsGetFiles(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    dialogs::GetFilesOptions o;
    if (MoaError err = call.path(1, o.folder)) return err;
    if (MoaError err = call.text(2, o.fileSpec, kShortLen)) return err;
    if (MoaError err = call.text(3, o.selectedFile, kShortLen)) return err;
    if (MoaError err = call.text(4, o.title, kShortLen)) return err;
    if (MoaError err = call.text(5, o.instruction, kShortLen)) return err;
    if (MoaError err = call.integer(6, o.flags)) return err;
    if (MoaError err = call.integer(7, o.x)) return err;
    if (MoaError err = call.integer(8, o.y)) return err;
    return call.returnText(dialogs::getFiles(o), kPathLen);
  });
}

MoaError T::tsOpenFile(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, state;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, state)) return err;
    return call.returnInteger(system::openFile(file, state));
  });
}

MoaError T::tsPrintFile(PMoaMmCallInfo info) { return pathToInteger(info, system::printFile); }

MoaError T::tsReturnUnixNames(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t on = 0;
    if (MoaError err = call.integer(1, on)) return err;
    // Only the low eight bits are kept: 256 turns the switch off.
    paths::setReturnUnixNames(static_cast<uint8_t>(on) != 0);
    return call.returnNothing();
  });
}

MoaError T::tsOpenURL(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string url, state;
    if (MoaError err = call.text(1, url, kPathLen)) return err;
    if (MoaError err = call.text(2, state)) return err;
    return call.returnInteger(system::openURL(url, state));
  });
}

MoaError T::tsShell(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string operation, file, args, workDir, state;
    if (MoaError err = call.text(1, operation)) return err;
    // "terminal" and "system" run FileName as a command line, which is no path: its ":" and a
    // leading "@" stay as written, and it may be longer than a path. Every other operation opens
    // FileName as a path.
    const bool command = support::equalsIgnoringCase(operation, "terminal") ||
                         support::equalsIgnoringCase(operation, "system");
    if (MoaError err = call.text(2, file, command ? kCommandLineLen : kPathLen)) return err;
    if (!command) file = applyPathRule(file);
    if (MoaError err = call.text(3, args, kPathLen)) return err;
    if (MoaError err = call.path(4, workDir)) return err;
    if (MoaError err = call.text(5, state)) return err;
    return call.returnInteger(system::shell(operation, file, args, workDir, state));
  });
}

MoaError T::tsMakeShortcut(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, folder, title;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.path(2, folder)) return err;
    if (MoaError err = call.text(3, title, kShortLen)) return err;
    return call.returnInteger(system::makeShortcut(file, folder, title));
  });
}

MoaError T::tsFileCreator(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file;
    if (MoaError err = call.path(1, file)) return err;
    uint32_t code = 0;
    bool found = files::fileCreator(file, code);
    return call.returnText(codeText(found, code), 4);
  });
}

MoaError T::tsFileType(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file;
    if (MoaError err = call.path(1, file)) return err;
    uint32_t code = 0;
    bool found = files::fileType(file, code);
    return call.returnText(codeText(found, code), 4);
  });
}

MoaError T::tsSetFileInfo(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, type, creator;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, type)) return err;
    if (MoaError err = call.text(3, creator)) return err;
    return call.returnInteger(files::setFileInfo(file, codeOf(type), codeOf(creator)));
  });
}

MoaError T::tsFilePermissions(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, user;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, user)) return err;
    return call.returnText(files::filePermissions(file, user), kShortLen);
  });
}

MoaError T::tsSetFilePermissions(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file, user, permissions;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.text(2, user)) return err;
    if (MoaError err = call.text(3, permissions)) return err;
    return call.returnInteger(files::setFilePermissions(file, user, permissions));
  });
}

MoaError T::tsRefreshFiles(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    system::refreshFiles();
    return call.returnNothing();
  });
}

}  // namespace tessel::xtra
