// The movie and player services of the host: the message window's one movie, its handlers and
// properties, and the file names the player resolves. What a real player does with casts, the
// Score and media answers kMoaErr_NotImplemented here.
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "host/service_support.h"
#include "host/services.h"

namespace tessel::host {

using namespace moa;

// ---- Movie ---------------------------------------------------------------------------------------

MoaError MovieService::CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                                   PMoaMmValue result) {
  return guarded([&] {
    if (result != nullptr) *result = ValueStore::kVoid;
    if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
    auto handler = host_.values.symbolName(name);
    if (!handler || nArgs < 0 || (nArgs > 0 && args == nullptr)) return kMoaErr_BadParam;
    std::vector<Value> argv(static_cast<size_t>(nArgs));
    for (MoaLong i = 0; i < nArgs; ++i) {
      if (MoaError err = host_.values.toValue(args[i], argv[static_cast<size_t>(i)])) return err;
    }
    Value answer;
    if (MoaError err = host_.movie->callHandler(*handler, argv, answer)) return err;
    if (result != nullptr) return host_.values.fromValue(answer, result);
    return kMoaErr_NoErr;
  });
}

MoaError MovieService::GetProp(MoaMmSymbol prop, PMoaMmValue out) {
  return guarded([&] {
    if (out == nullptr) return kMoaErr_BadParam;
    if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
    auto name = host_.values.symbolName(prop);
    if (!name) return kMoaErr_BadParam;
    if (equalsIgnoringCase(*name, "moviePath") || equalsIgnoringCase(*name, "path")) {
      return host_.values.stringToValue(host_.movie->moviePath(), out);
    }
    return kMoaMmErr_PropertyNotFound;
  });
}

// Casts, media, the score and the stage belong to a movie file; the host's movie is only the
// running script context.
MoaError MovieService::SetProp(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::SetMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::AttachMedia(MoaDrMediaInfo*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastCount(MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetNthCast(MoaLong, IMoaDrCast**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastFromName(const char*, IMoaDrCast**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastIndexFromName(const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::NewCast(const char*, MoaBoolParam, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::AddExternalCast(const char*, const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::RemoveCast(MoaLong) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCMRefFromMemberName(const char*, MoaDrCMRef*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetCastMemFromCMRef(const MoaDrCMRef*, IMoaDrCastMem**) { return kMoaErr_NotImplemented; }
MoaError MovieService::UpdateStageRect(const MoaRect*, const MoaRect*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetStageWindowGC(IMoaMmGC**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetStageBufferGC(IMoaMmGC**) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetFrameIndexFromLabel(const char*, MoaLong*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetFrameLabelFromIndex(MoaLong, char*, MoaLong) { return kMoaErr_NotImplemented; }
MoaError MovieService::SetFrameLabel(MoaLong, const char*) { return kMoaErr_NotImplemented; }
MoaError MovieService::GetScoreAccess(IMoaDrScoreAccess**) { return kMoaErr_NotImplemented; }
MoaError MovieService::Save(const char*, MoaBoolParam) { return kMoaErr_NotImplemented; }
MoaError MovieService::SendSpriteMessage(MoaLong, MoaMmSymbol, MoaLong, PMoaMmValue, PMoaMmValue,
                                         MoaBool*) {
  return kMoaErr_NotImplemented;
}

// ---- Player --------------------------------------------------------------------------------------

MoaError PlayerService::GetProp(MoaMmSymbol, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError PlayerService::SetProp(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }

MoaError PlayerService::CallHandler(MoaMmSymbol name, MoaLong nArgs, PMoaMmValue args,
                                    PMoaMmValue result) {
  return host_.movieService.CallHandler(name, nArgs, args, result);
}

MoaError PlayerService::GetActiveMovie(IMoaDrMovie** movie) {
  if (movie == nullptr) return kMoaErr_BadParam;
  *movie = nullptr;
  if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
  host_.movieService.AddRef();
  *movie = &host_.movieService;
  return kMoaErr_NoErr;
}

MoaError PlayerService::GetMovieCount(MoaLong* count) {
  if (count == nullptr) return kMoaErr_BadParam;
  *count = host_.movie != nullptr ? 1 : 0;
  return kMoaErr_NoErr;
}

MoaError PlayerService::GetNthMovie(MoaLong index, IMoaDrMovie** movie) {
  if (movie == nullptr) return kMoaErr_BadParam;
  *movie = nullptr;
  if (host_.movie == nullptr) return kMoaDrErr_MovieNotOpen;
  if (index != 1) return kMoaMmErr_ArgOutOfRange;
  return GetActiveMovie(movie);
}

// Resolves a file name the way the player searches: "@" names the movie's folder ("@/a",
// "@:a" and "@\a" alike; every further leading separator goes one folder up), a plain relative
// name is looked for beside the movie, an absolute one as it is. Only an existing regular file
// is an answer.
MoaError PlayerService::ResolveFileName(const char* name, char* path, MoaLong bufLen) {
  return guarded([&] {
    if (name == nullptr || path == nullptr || bufLen <= 0) return kMoaErr_BadParam;
    path[0] = '\0';
    std::string n(name);
    if (n == "@" && host_.options.playerResolvesAt) {
      return answerWhole(*host_.options.playerResolvesAt, path, bufLen,
                         kMoaDictErr_BufferTooSmall);
    }
    std::string base = host_.movie != nullptr ? host_.movie->moviePath() : std::string();
    if (!base.empty() && base.back() != '/') base += '/';
    auto isSep = [](char c) { return c == '/' || c == ':' || c == '\\'; };
    std::string candidate;
    if (!n.empty() && n[0] == '@') {
      if (base.empty()) return kMoaErr_FileNotFound;
      std::string_view rest(n);
      rest.remove_prefix(1);
      if (!rest.empty() && isSep(rest.front())) rest.remove_prefix(1);
      while (!rest.empty() && isSep(rest.front())) {
        rest.remove_prefix(1);
        if (base.size() > 1) {
          base.pop_back();
          base.erase(base.rfind('/') + 1);
        }
      }
      std::string tail(rest);
      for (char& c : tail) {
        if (c == ':' || c == '\\') c = '/';
      }
      candidate = base + tail;
    } else if (!n.empty() && n[0] == '/') {
      candidate = n;
    } else {
      if (base.empty() || n.empty()) return kMoaErr_FileNotFound;
      candidate = base + n;
    }
    struct stat st {};
    if (::stat(candidate.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return kMoaErr_FileNotFound;
    return answerWhole(candidate, path, bufLen, kMoaDictErr_BufferTooSmall);
  });
}

// Cast member types and global variables live in a movie file the host does not have.
MoaError PlayerService::GetCastMemTypeCount(MoaLong*) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetNthCastMemTypeSymbol(MoaLong, MoaMmSymbol*) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetCastMemTypeDisplayName(MoaMmSymbol, char*, MoaLong) { return kMoaErr_NotImplemented; }
MoaError PlayerService::GetGlobalVarValue(MoaMmSymbol, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError PlayerService::SetGlobalVarValue(MoaMmSymbol, ConstPMoaMmValue) { return kMoaErr_NotImplemented; }

// ---- Media values --------------------------------------------------------------------------------

// Media and pictures are cast-member data the host does not keep.
MoaError MediaValueService::ValueToMedia(ConstPMoaMmValue, MoaHandle*) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::MediaToValue(const MoaHandle, PMoaMmValue) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::ValueToPicture(ConstPMoaMmValue, MoaHandle*) { return kMoaErr_NotImplemented; }
MoaError MediaValueService::PictureToValue(const MoaHandle, PMoaMmValue) { return kMoaErr_NotImplemented; }

}  // namespace tessel::host
