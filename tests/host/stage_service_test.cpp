// The stage and interrupt interfaces: served only by hosts that have a presentation window or
// can tell a user's stop, answering through the host's own functions.
#include <gtest/gtest.h>

#include "host/services.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

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

TEST(InterruptService, ServedOnlyWhenTheHostCanTell) {
  {
    Host plain;
    void* p = nullptr;
    EXPECT_EQ(services(plain).callback.QueryInterface(&IID_ITesselInterrupt, &p),
              kMoaErr_BadInterface);
  }
  bool stop = false;
  HostOptions options;
  options.interruptRequested = [&] { return stop; };
  Host host(options);
  void* p = nullptr;
  ASSERT_EQ(services(host).callback.QueryInterface(&IID_ITesselInterrupt, &p), 0);
  auto* interrupt = static_cast<ITesselInterrupt*>(p);
  MoaBool requested = 7;
  EXPECT_EQ(interrupt->InterruptRequested(&requested), kMoaErr_NoErr);
  EXPECT_EQ(requested, 0);
  stop = true;
  EXPECT_EQ(interrupt->InterruptRequested(&requested), kMoaErr_NoErr);
  EXPECT_EQ(requested, 1);
  EXPECT_EQ(interrupt->InterruptRequested(nullptr), kMoaErr_BadParam);
  EXPECT_EQ(interrupt->Release(), 0u);
}

}  // namespace
}  // namespace tessel::host
