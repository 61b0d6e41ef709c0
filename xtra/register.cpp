// Registration: the method table under "msgTable" for the scripting class, and the tool-menu
// entry of the help tool.
#include <cstring>

#include "xtra/module.h"

namespace tessel::xtra {

MoaError TStdXtra_IMoaRegister::Register(IMoaCache* cache, IMoaDict* xtraDict) {
  if (cache == nullptr) return kMoaErr_BadParam;
  IMoaDict* scriptDict = nullptr;
  MoaError err = cache->AddRegistryEntry(xtraDict, &CLSID_TesselScript, &IID_IMoaMmXScript,
                                         &scriptDict);
  if (err != kMoaErr_NoErr) return err;

  IMoaCalloc* calloc = owner_->pCalloc;
  auto* text = static_cast<char*>(calloc->NRAlloc(kMethodTableBlockSize));
  if (text == nullptr) return kMoaErr_OutOfMem;
  // The block is zero-filled; the header line and the table fit with room for the terminator.
  static constexpr char kHeader[] = "xtra Tessel\n";
  size_t used = 0;
  auto append = [&](const char* s) {
    size_t n = std::strlen(s);
    if (n > kMethodTableBlockSize - 1 - used) n = kMethodTableBlockSize - 1 - used;
    std::memcpy(text + used, s, n);
    used += n;
  };
  append(kHeader);
  append(methodTableText());

  err = scriptDict->Put(kMoaDictType_CString, text, 0, kMoaMmDictKey_MessageTable);
  if (err == kMoaErr_NoErr) {
    // The tool entry is optional: a host that refuses any of it still has the Lingo methods.
    IMoaDict* toolDict = nullptr;
    if (cache->AddRegistryEntry(xtraDict, &CLSID_TesselHelpTool, &IID_IMoaMmXTool, &toolDict) ==
            kMoaErr_NoErr &&
        toolDict->Put(kMoaDictType_CString, "Tessel Help", 0,
                      kMoaMmDictKey_DisplayNameString) == kMoaErr_NoErr &&
        toolDict->Put(kMoaDictType_CString, "", 0, kMoaMmDictKey_DisplayCategoryString) ==
            kMoaErr_NoErr) {
      MoaLong alwaysEnabled = 1;
      toolDict->Put(kMoaDictType_Long, &alwaysEnabled, sizeof alwaysEnabled,
                    kMoaMmDictKey_AlwaysEnabled);
    }
  }
  calloc->NRFree(text);
  return err;
}

}  // namespace tessel::xtra
