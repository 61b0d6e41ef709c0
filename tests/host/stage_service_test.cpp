// The stage and interrupt interfaces: served only by hosts that have a presentation window or
// can tell a user's stop, answering through the host's own functions. (A hold granted and
// given back, and a host without one, are the desktop's kiosk_test, through the real module; a
// stop asked for, all_methods_test's; no stop asked for, the message window's every wait.)
#include <gtest/gtest.h>

#include "host/services.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

namespace tessel::host {
namespace {

using namespace moa;

TEST(StageService, ARefusedHoldAndABadAnswerPlace) {
  HostOptions options;
  options.holdKeyboard = [](bool) { return false; };  // another client holds the keyboard
  options.interruptRequested = [] { return true; };
  Host host(options);
  void* p = nullptr;
  ASSERT_EQ(services(host).callback.QueryInterface(&IID_ITesselStage, &p), 0);
  auto* stage = static_cast<ITesselStage*>(p);
  EXPECT_EQ(stage->HoldKeyboard(7), kMoaErr_InternalError);
  EXPECT_EQ(stage->Release(), 0u);
  ASSERT_EQ(services(host).callback.QueryInterface(&IID_ITesselInterrupt, &p), 0);
  auto* interrupt = static_cast<ITesselInterrupt*>(p);
  EXPECT_EQ(interrupt->InterruptRequested(nullptr), kMoaErr_BadParam);
  EXPECT_EQ(interrupt->Release(), 0u);
  EXPECT_EQ(host.serviceReferences(), 0u);
}

}  // namespace
}  // namespace tessel::host
