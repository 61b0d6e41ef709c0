// The stage interface: served only by hosts with a presentation window, answering through the
// host's keyboard hold.
#include <gtest/gtest.h>

#include "host/services.h"
#include "xtra/moa/tessel_stage.h"

namespace tessel::host {
namespace {

using namespace moa;

TEST(StageService, ServedOnlyWithAKeyboardHold) {
  {
    Host plain;
    void* p = nullptr;
    EXPECT_EQ(services(plain).callback.QueryInterface(&IID_ITesselStage, &p), kMoaErr_BadInterface);
    EXPECT_EQ(p, nullptr);
  }
  std::vector<bool> calls;
  bool grantable = true;
  HostOptions options;
  options.holdKeyboard = [&](bool hold) {
    calls.push_back(hold);
    return grantable;
  };
  Host host(options);
  HostServices& s = services(host);
  void* p = nullptr;
  ASSERT_EQ(s.callback.QueryInterface(&IID_ITesselStage, &p), 0);
  auto* stage = static_cast<ITesselStage*>(p);
  EXPECT_EQ(host.serviceReferences(), 1u);
  EXPECT_EQ(stage->HoldKeyboard(1), kMoaErr_NoErr);
  EXPECT_EQ(stage->HoldKeyboard(0), kMoaErr_NoErr);
  grantable = false;  // another client holds the keyboard
  EXPECT_EQ(stage->HoldKeyboard(7), kMoaErr_InternalError);
  EXPECT_EQ(calls, (std::vector<bool>{true, false, true}));
  EXPECT_EQ(stage->Release(), 0u);
  EXPECT_EQ(host.serviceReferences(), 0u);
}

}  // namespace
}  // namespace tessel::host
