// A stand-in for the desktop's windows: it records what each dialog would show and answers what
// the test scripted, and it counts the host bracket around every window.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ui.h"

namespace tessel::testing {

struct FakeProgressLog {
  std::vector<std::string> names;
  std::vector<int32_t> percents;
  int polls = 0;
  int cancelAtPoll = -1;  // poll number (from 1) that reports a cancel
  bool open = false;
  int opened = 0;
};

class FakeUi final : public platform::UiService {
 public:
  bool display = true;
  std::pair<int32_t, int32_t> screen{1280, 1024};
  platform::TextMeasure measure{1, 15};

  std::vector<platform::AlertSpec> alerts;
  std::deque<int32_t> alertAnswers;
  std::vector<platform::CustomBoxSpec> boxes;
  std::deque<int32_t> boxAnswers;
  std::vector<platform::PromptSpec> prompts;
  std::deque<std::optional<std::vector<std::string>>> promptAnswers;
  FakeProgressLog progress;
  int pausedMs = 0;

  bool available() override { return display; }
  std::pair<int32_t, int32_t> screenSize() override { return screen; }
  platform::TextMeasure measureText(const std::string&, const platform::TextStyle&,
                                    int32_t) override {
    return measure;
  }
  int32_t alert(const platform::AlertSpec& spec) override {
    alerts.push_back(spec);
    return next(alertAnswers, 1);
  }
  int32_t customBox(const platform::CustomBoxSpec& spec) override {
    boxes.push_back(spec);
    return next(boxAnswers, 1);
  }
  std::optional<std::vector<std::string>> prompt(const platform::PromptSpec& spec) override {
    prompts.push_back(spec);
    return next(promptAnswers, std::optional<std::vector<std::string>>());
  }
  // The selectors are driven on the real desktop (Dialogs.SelectorsTakeTypedPaths): cancelled.
  std::vector<std::string> chooseFiles(const platform::FileChooserSpec&) override { return {}; }
  int32_t chooseFromList(const platform::ListChooserSpec&) override { return -1; }
  std::unique_ptr<platform::ProgressWindow> openProgress(const platform::ProgressSpec&) override {
    if (!display) return nullptr;
    return std::make_unique<Window>(progress);
  }
  void pause(int32_t ms) override { pausedMs += ms; }

 private:
  template <typename T>
  static T next(std::deque<T>& answers, T fallback) {
    if (answers.empty()) return fallback;
    T answer = answers.front();
    answers.pop_front();
    return answer;
  }

  class Window final : public platform::ProgressWindow {
   public:
    explicit Window(FakeProgressLog& log) : log_(log) {
      log_.open = true;
      ++log_.opened;
    }
    ~Window() override { log_.open = false; }
    void setName(const std::string& name) override { log_.names.push_back(name); }
    void setPercent(int32_t percent) override { log_.percents.push_back(percent); }
    bool poll() override { return ++log_.polls == log_.cancelAtPoll; }

   private:
    FakeProgressLog& log_;
  };
};

// Counts the bracket and records what the progress handler hears.
class FakeHooks final : public platform::HostHooks {
 public:
  int begun = 0, ended = 0;
  std::vector<std::pair<int32_t, std::string>> handlerCalls;

  void beginWindow() override { ++begun; }
  void endWindow() override { ++ended; }
  HandlerAnswer progressUpdate(int32_t value, const std::string& name) override {
    handlerCalls.emplace_back(value, name);
    return HandlerAnswer::Continue;
  }
};

// Installs both fakes for one test and takes them out again.
class FakeDialogSession {
 public:
  FakeDialogSession() {
    auto fake = std::make_unique<FakeUi>();
    ui = fake.get();
    previous_ = platform::setUiService(std::move(fake));
    platform::setHostHooks(&hooks);
  }
  ~FakeDialogSession() {
    platform::setHostHooks(nullptr);
    platform::setUiService(std::move(previous_));
  }
  FakeUi* ui;
  FakeHooks hooks;

 private:
  std::unique_ptr<platform::UiService> previous_;
};

}  // namespace tessel::testing
