// Lingo methods 1-11: information about the machine.
#include "support/four_char_code.h"
#include "formats/ini.h"
#include "paths/paths.h"
#include "system/version_info.h"
#include "xtra/marshal.h"

namespace tessel::xtra {

using T = TStdXtra_IMoaMmXScript;

MoaError T::tsVersion(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string type;
    if (MoaError err = call.text(1, type)) return err;
    return call.returnText(system::version(type), kShortLen);
  });
}

MoaError T::tsSysFolder(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string keyword;
    if (MoaError err = call.text(1, keyword)) return err;
    return call.returnText(paths::sysFolder(keyword), kPathLen);
  });
}

MoaError T::tsDiskInfo(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string drive, type;
    if (MoaError err = call.path(1, drive)) return err;
    if (MoaError err = call.text(2, type)) return err;
    auto answer = paths::diskInfo(drive, type);
    if (const int32_t* n = std::get_if<int32_t>(&answer)) return call.returnInteger(*n);
    return call.returnText(std::get<std::string>(answer), 72);
  });
}

MoaError T::tsDiskList(PMoaMmCallInfo info) {
  return runMethod(info,
                   [](MethodCall& call) -> MoaError { return call.returnList(paths::diskList()); });
}

MoaError T::tsMemoryInfo(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string type;
    if (MoaError err = call.text(1, type)) return err;
    return call.returnFloat(system::memoryInfo(type));
  });
}

MoaError T::tsFindApp(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string creator;
    if (MoaError err = call.text(1, creator)) return err;
    return call.returnText(system::findApp(creator), kPathLen);
  });
}

MoaError T::tsReadIni(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string section, key, fallback, file;
    if (MoaError err = call.text(1, section, kLongTextLen)) return err;
    if (MoaError err = call.text(2, key, kLongTextLen)) return err;
    if (MoaError err = call.text(3, fallback, kLongTextLen)) return err;
    if (MoaError err = call.path(4, file)) return err;
    return call.returnText(formats::readIni(section, key, fallback, file), kLongTextLen);
  });
}

MoaError T::tsWriteIni(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string section, key, value, file;
    if (MoaError err = call.text(1, section, kLongTextLen)) return err;
    if (MoaError err = call.text(2, key, kLongTextLen)) return err;
    if (MoaError err = call.text(3, value, kLongTextLen)) return err;
    if (MoaError err = call.path(4, file)) return err;
    return call.returnInteger(formats::writeIni(section, key, value, file));
  });
}

MoaError T::tsFontInstalled(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string font, style;
    if (MoaError err = call.text(1, font, kShortLen)) return err;
    if (MoaError err = call.text(2, style)) return err;
    return call.returnInteger(system::fontInstalled(font, style));
  });
}

MoaError T::tsGestalt(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string selector;
    if (MoaError err = call.text(1, selector)) return err;
    return call.returnInteger(system::gestalt(support::readFourCharCode(selector)));
  });
}

MoaError T::tsGestaltExists(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string selector;
    if (MoaError err = call.text(1, selector)) return err;
    return call.returnInteger(system::gestaltExists(support::readFourCharCode(selector)));
  });
}

}  // namespace tessel::xtra
