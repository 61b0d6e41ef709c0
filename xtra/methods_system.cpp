// Lingo methods 12-38: system services.
#include "dialogs/message_box.h"
#include "dialogs/prompt.h"
#include "formats/cipher.h"
#include "formats/dates.h"
#include "paths/paths.h"
#include "system/displays.h"
#include "system/kiosk.h"
#include "system/programs.h"
#include "system/version_info.h"
#include "windows/input.h"
#include "xtra/marshal.h"

namespace tessel::xtra {

using T = TStdXtra_IMoaMmXScript;

MoaError T::tsSetWallpaper(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string file;
    int32_t tile = 0;
    if (MoaError err = call.path(1, file)) return err;
    if (MoaError err = call.integer(2, tile)) return err;
    return call.returnInteger(system::setWallpaper(file, tile));
  });
}

MoaError T::tsSetDisplay(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t width = 0, height = 0, depth = 0, force = 0;
    std::string mode;
    if (MoaError err = call.integer(1, width)) return err;
    if (MoaError err = call.integer(2, height)) return err;
    if (MoaError err = call.integer(3, depth)) return err;
    if (MoaError err = call.text(4, mode)) return err;
    if (MoaError err = call.integer(5, force)) return err;
    return call.returnInteger(system::setDisplay(width, height, depth, mode, force));
  });
}

MoaError T::tsMultiDisplayList(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnList(system::multiDisplayList());
  });
}

MoaError T::tsMultiDisplayInfo(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string display, what;
    if (MoaError err = call.text(1, display)) return err;
    if (MoaError err = call.text(2, what)) return err;
    auto answer = system::multiDisplayInfo(display, what);
    if (auto* list = std::get_if<std::vector<std::string>>(&answer)) return call.returnList(*list);
    return call.returnText(std::get<std::string>(answer), kShortLen);
  });
}

MoaError T::tsSetMultiDisplay(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string monitor, mode;
    int32_t width = 0, height = 0, depth = 0, refresh = 0, flags = 0;
    if (MoaError err = call.text(1, monitor)) return err;
    if (MoaError err = call.integer(2, width)) return err;
    if (MoaError err = call.integer(3, height)) return err;
    if (MoaError err = call.integer(4, depth)) return err;
    if (MoaError err = call.integer(5, refresh)) return err;
    if (MoaError err = call.text(6, mode)) return err;
    if (MoaError err = call.integer(7, flags)) return err;
    return call.returnInteger(
        system::setMultiDisplay(monitor, width, height, depth, refresh, mode, flags));
  });
}

MoaError T::tsRunProgram(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string program, state;
    int32_t wait = 0;
    if (MoaError err = call.path(1, program)) return err;
    if (MoaError err = call.text(2, state)) return err;
    if (MoaError err = call.integer(3, wait)) return err;
    return call.returnInteger(system::runProgram(program, state, wait));
  });
}

MoaError T::tsMsgBox(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string msg, caption, buttons, icon;
    int32_t defButton = 0;
    if (MoaError err = call.text(1, msg, kLongTextLen)) return err;
    if (MoaError err = call.text(2, caption, kShortLen)) return err;
    if (MoaError err = call.text(3, buttons)) return err;
    if (MoaError err = call.text(4, icon)) return err;
    if (MoaError err = call.integer(5, defButton)) return err;
    return call.returnText(dialogs::msgBox(msg, caption, buttons, icon, defButton), kShortLen);
  });
}

MoaError T::tsMsgBoxButtons(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string captions[7];
    for (int k = 1; k <= 7; ++k)
      if (MoaError err = call.text(k, captions[k - 1], kShortLen)) return err;
    dialogs::msgBoxButtons(captions[0], captions[1], captions[2], captions[3], captions[4],
                           captions[5], captions[6]);
    return call.returnNothing();
  });
}

MoaError T::tsMsgBoxEx(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    dialogs::MsgBoxExOptions o;
    if (MoaError err = call.text(1, o.msg, kLongTextLen)) return err;
    if (MoaError err = call.text(2, o.caption, kShortLen)) return err;
    if (MoaError err = call.text(3, o.button1, kShortLen)) return err;
    if (MoaError err = call.text(4, o.button2, kShortLen)) return err;
    if (MoaError err = call.text(5, o.button3, kShortLen)) return err;
    if (MoaError err = call.text(6, o.icon)) return err;
    if (MoaError err = call.integer(7, o.defButton)) return err;
    if (MoaError err = call.text(8, o.alignment)) return err;
    if (MoaError err = call.text(9, o.fontName, kShortLen)) return err;
    if (MoaError err = call.integer(10, o.fontSize)) return err;
    if (MoaError err = call.integer(11, o.fontWeight)) return err;
    if (MoaError err = call.integer(12, o.xPos)) return err;
    if (MoaError err = call.integer(13, o.yPos)) return err;
    return call.returnText(dialogs::msgBoxEx(o), kShortLen);
  });
}

MoaError T::tsPrompt(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string caption, instruction, defaultText;
    int32_t flags = 0, x = 0, y = 0;
    if (MoaError err = call.text(1, caption, kShortLen)) return err;
    if (MoaError err = call.text(2, instruction, kPathLen)) return err;
    if (MoaError err = call.text(3, defaultText, kPathLen)) return err;
    if (MoaError err = call.integer(4, flags)) return err;
    if (MoaError err = call.integer(5, x)) return err;
    if (MoaError err = call.integer(6, y)) return err;
    return call.returnText(dialogs::prompt(caption, instruction, defaultText, flags, x, y),
                           kPathLen);
  });
}

MoaError T::tsLogIn(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    dialogs::LogInOptions o;
    if (MoaError err = call.text(1, o.caption, kShortLen)) return err;
    if (MoaError err = call.text(2, o.instruction, kPathLen)) return err;
    if (MoaError err = call.text(3, o.defaultName, kShortLen)) return err;
    if (MoaError err = call.text(4, o.defaultPassword, kShortLen)) return err;
    if (MoaError err = call.integer(5, o.flags)) return err;
    if (MoaError err = call.text(6, o.nameCaption, kShortLen)) return err;
    if (MoaError err = call.text(7, o.passwordCaption, kShortLen)) return err;
    if (MoaError err = call.integer(8, o.x)) return err;
    if (MoaError err = call.integer(9, o.y)) return err;
    dialogs::LogInResult result = dialogs::logIn(o);
    if (!result.ok) return call.returnText("", kShortLen);
    return call.returnPropList({{"name", result.name}, {"password", result.password}});
  });
}

MoaError T::tsHideTaskBar(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t hide = 0;
    if (MoaError err = call.integer(1, hide)) return err;
    return call.returnInteger(system::hideTaskBar(hide));
  });
}

MoaError T::tsDisableSwitching(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t disable = 0;
    if (MoaError err = call.integer(1, disable)) return err;
    return call.returnInteger(system::disableSwitching(disable));
  });
}

MoaError T::tsCopyText(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string text;
    // The whole text goes to the clipboard; only pasting is bounded.
    if (MoaError err = call.text(1, text, kUnboundedLen)) return err;
    return call.returnInteger(system::copyText(text));
  });
}

MoaError T::tsPasteText(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnText(system::pasteText(), kClipboardLen);
  });
}

MoaError T::tsEncryptText(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string text, key;
    if (MoaError err = call.text(1, text, kLongTextLen)) return err;
    if (MoaError err = call.text(2, key, kLongTextLen)) return err;
    return call.returnText(formats::encryptText(text, key), kLongTextLen);
  });
}

MoaError T::tsDecryptText(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string text, key;
    if (MoaError err = call.text(1, text, kLongTextLen)) return err;
    if (MoaError err = call.text(2, key, kLongTextLen)) return err;
    return call.returnText(formats::decryptText(text, key), kLongTextLen);
  });
}

MoaError T::tsPlaceCursor(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t x = 0, y = 0;
    if (MoaError err = call.integer(1, x)) return err;
    if (MoaError err = call.integer(2, y)) return err;
    return call.returnInteger(system::placeCursor(x, y));
  });
}

MoaError T::tsSetVolume(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string type;
    int32_t volume = 0;
    if (MoaError err = call.text(1, type)) return err;
    if (MoaError err = call.integer(2, volume)) return err;
    return call.returnInteger(system::setVolume(type, volume));
  });
}

MoaError T::tsGetVolume(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string type;
    if (MoaError err = call.text(1, type)) return err;
    return call.returnInteger(system::getVolume(type));
  });
}

MoaError T::tsUserName(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnText(system::userName(), kShortLen);
  });
}

MoaError T::tsUserShortName(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnText(system::userShortName(), kShortLen);
  });
}

MoaError T::tsComputerName(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnText(system::computerName(), kShortLen);
  });
}

MoaError T::tsLanguage(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    return call.returnInteger(system::language());
  });
}

MoaError T::tsKeyIsDown(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    int32_t key = 0;
    if (MoaError err = call.integer(1, key)) return err;
    return call.returnInteger(windows::keyIsDown(key));
  });
}

MoaError T::tsEjectDisk(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string disk;
    if (MoaError err = call.path(1, disk)) return err;
    return call.returnInteger(paths::ejectDisk(disk));
  });
}

MoaError T::tsSystemTime(PMoaMmCallInfo info) {
  return runMethod(info, [](MethodCall& call) -> MoaError {
    std::string format;
    if (MoaError err = call.text(1, format, kShortLen)) return err;
    return call.returnText(formats::systemTime(format), 256);
  });
}

}  // namespace tessel::xtra
