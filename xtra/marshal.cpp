#include "xtra/marshal.h"

#include <algorithm>
#include <cstring>

#include "paths/paths.h"
#include "platform/text_encoding.h"

namespace tessel::xtra {

std::string bounded(std::string_view text, size_t limit) {
  size_t nul = text.find('\0');
  if (nul != std::string_view::npos) text = text.substr(0, nul);
  return std::string(text.substr(0, std::min(limit, text.size())));
}

MethodCall::MethodCall(PMoaMmCallInfo call) : call_(call) {
  // Each Lingo call sees the volumes as they are when it starts.
  paths::beginCall();
}

const MoaMmValue* MethodCall::argument(int k) const { return &call_->pArgs[k - 1]; }

MoaError MethodCall::text(int k, std::string& out, size_t limit) {
  out.clear();
  IMoaMmValue* values = hostServices().scriptValue;
  if (values == nullptr) return kMoaErr_InternalError;
  // Copy the argument value, borrow its text, copy it bounded, end the borrow.
  MoaMmValue arg = *argument(k);
  const char* borrowed = nullptr;
  MoaError err = values->ValueToStringPtr(&arg, &borrowed);
  if (err != kMoaErr_NoErr) return err;
  if (borrowed != nullptr) out = bounded(borrowed, limit);
  values->ValueReleaseStringPtr(&arg);
  return kMoaErr_NoErr;
}

MoaError MethodCall::path(int k, std::string& out, size_t limit) {
  std::string raw;
  if (MoaError err = text(k, raw, limit)) return err;
  out = applyPathRule(raw, limit);
  return kMoaErr_NoErr;
}

MoaError MethodCall::integer(int k, int32_t& out) {
  IMoaMmValue* values = hostServices().scriptValue;
  if (values == nullptr) return kMoaErr_InternalError;
  MoaMmValue arg = *argument(k);
  MoaLong n = 0;
  MoaError err = values->ValueToInteger(&arg, &n);
  if (err != kMoaErr_NoErr) return err;
  out = n;
  return kMoaErr_NoErr;
}

MoaError MethodCall::returnInteger(int32_t n) {
  return hostServices().scriptValue->IntegerToValue(n, &call_->resultValue);
}

MoaError MethodCall::returnFloat(double d) {
  return hostServices().scriptValue->FloatToValue(d, &call_->resultValue);
}

MoaError MethodCall::returnText(std::string_view text, size_t limit) {
  std::string buffer = bounded(text, limit);
  return hostServices().scriptValue->StringToValue(buffer.c_str(), &call_->resultValue);
}

MoaError MethodCall::returnRomanText(std::string_view roman, size_t limit) {
  std::string utf8 = platform::macRomanToUtf8(bounded(roman, limit));
  return returnText(utf8, limit);
}

MoaError MethodCall::returnList(const std::vector<std::string>& items) {
  HostServices& host = hostServices();
  MoaError err = host.list->NewListValue(&call_->resultValue);
  if (err != kMoaErr_NoErr) return err;
  for (const std::string& item : items) {
    MoaMmValue value{};
    if ((err = host.lingoValue->StringToValue(item.c_str(), &value))) return err;
    err = host.list->AppendValueToList(&call_->resultValue, &value);
    host.lingoValue->ValueRelease(&value);
    if (err != kMoaErr_NoErr) return err;
  }
  return kMoaErr_NoErr;
}

MoaError MethodCall::returnPropList(
    const std::vector<std::pair<std::string, std::string>>& items) {
  HostServices& host = hostServices();
  MoaError err = host.list->NewPropListValue(&call_->resultValue);
  if (err != kMoaErr_NoErr) return err;
  for (const auto& [name, text] : items) {
    MoaMmSymbol symbol = 0;
    if ((err = host.lingoValue->StringToSymbol(name.c_str(), &symbol))) return err;
    MoaMmValue property{}, value{};
    if ((err = host.lingoValue->SymbolToValue(symbol, &property))) return err;
    if ((err = host.lingoValue->StringToValue(text.c_str(), &value))) {
      host.lingoValue->ValueRelease(&property);
      return err;
    }
    err = host.list->AppendValueToPropList(&call_->resultValue, &property, &value);
    host.lingoValue->ValueRelease(&property);
    host.lingoValue->ValueRelease(&value);
    if (err != kMoaErr_NoErr) return err;
  }
  return kMoaErr_NoErr;
}

MoaError MethodCall::returnIntegerList(const std::vector<int32_t>& items) {
  HostServices& host = hostServices();
  MoaError err = host.list->NewListValue(&call_->resultValue);
  if (err != kMoaErr_NoErr) return err;
  for (int32_t item : items) {
    MoaMmValue value{};
    if ((err = host.scriptValue->IntegerToValue(item, &value))) return err;
    err = host.list->AppendValueToList(&call_->resultValue, &value);
    host.lingoValue->ValueRelease(&value);
    if (err != kMoaErr_NoErr) return err;
  }
  return kMoaErr_NoErr;
}

std::string evaluateLingo(const char* expression, size_t limit) {
  HostServices& host = hostServices();
  if (host.player == nullptr || host.lingoValue == nullptr) return "";
  IMoaDrMovie* movie = nullptr;
  if (host.player->GetActiveMovie(&movie) != kMoaErr_NoErr || movie == nullptr) return "";
  std::string out;
  MoaMmSymbol valueSymbol = 0;
  MoaMmValue argument{};
  MoaMmValue result{};  // VOID, the integer-0 form
  if (host.lingoValue->StringToSymbol("value", &valueSymbol) == kMoaErr_NoErr &&
      host.lingoValue->StringToValue(expression, &argument) == kMoaErr_NoErr) {
    if (movie->CallHandler(valueSymbol, 1, &argument, &result) == kMoaErr_NoErr) {
      std::vector<char> buffer(limit + 1, '\0');
      if (host.lingoValue->ValueToString(&result, buffer.data(), static_cast<MoaLong>(limit + 1)) ==
          kMoaErr_NoErr)
        out = bounded(std::string_view(buffer.data(), limit), limit);
      host.lingoValue->ValueRelease(&result);
    }
    host.lingoValue->ValueRelease(&argument);
  }
  movie->Release();
  return out;
}

std::string applyPathRule(std::string_view text, size_t limit) {
  std::string buffer = bounded(text, limit);
  if (buffer.empty()) return buffer;

  const ModuleState& state = moduleState();
  IMoaDrPlayer* player = hostServices().player;
  if (state.hostIsDirector && player != nullptr && buffer[0] == '@') {
    std::string rest = buffer.substr(1);
    // The player's own meaning of "@", else the movie's folder, else the application's.
    std::vector<char> resolved(kPathLen + 1, '\0');
    std::string base;
    if (player->ResolveFileName("@", resolved.data(), static_cast<MoaLong>(kPathLen)) ==
        kMoaErr_NoErr)
      base = bounded(std::string_view(resolved.data(), kPathLen), kPathLen);
    if (base.empty()) {
      base = evaluateLingo("the moviePath", kPathLen);
      if (base.empty()) base = evaluateLingo("the applicationPath", kPathLen);
      paths::stripTrailingSeparator(base);
    }
    // The base in HFS form with every component as the file system names it. Short names equal
    // long names here, so the long (UTF-8) form is used: the file layer reads UTF-8.
    buffer = bounded(paths::longPathName(paths::toHfsPath(base)), limit);
    if (paths::returnUnixNames()) buffer = bounded(paths::toUnixPath(buffer), limit);
    paths::stripTrailingSeparator(buffer);
    // The text after "@" brings its own separator ("@:Media:a" or "@/Media/a"); it is appended
    // as written.
    buffer = bounded(buffer + rest, limit);
  }
  if (!buffer.empty() && buffer[0] == '/') std::replace(buffer.begin(), buffer.end(), ':', '/');
  return buffer;
}

}  // namespace tessel::xtra
