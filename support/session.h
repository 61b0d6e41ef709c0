// The module's session: what a movie set (the path style, the button captions...) and what the
// layers keep from one call to the next (the open search, the kiosk's changes), held in one object
// from the first scripting instance's start to the last one's end.
//
// Each layer declares its part as a type in its own folder and reaches it with
// `support::session().part<Part>()`; a part is made, default-constructed, on its first use. Ending
// the session calls each part's `end()` (for the parts that have one: the kiosk puts back what it
// changed) in the reverse order of their making, then drops them all, so that the next session
// starts from the defaults and no layer can keep anything past the end by forgetting a reset.
// The host calls the module on one thread; so does everything here.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace tessel::support {

class Session {
 public:
  template <typename Part>
  Part& part() {
    const size_t id = partId<Part>();
    if (id >= parts_.size()) parts_.resize(id + 1);
    if (!parts_[id]) {
      parts_[id] = std::make_unique<Holder<Part>>();
      made_.push_back(id);
    }
    return static_cast<Holder<Part>&>(*parts_[id]).value;
  }

  void end() {
    // Taken out first: a part's end() that reaches its own part again finds a fresh one.
    std::vector<std::unique_ptr<Base>> parts = std::move(parts_);
    std::vector<size_t> made = std::move(made_);
    parts_.clear();
    made_.clear();
    for (auto id = made.rbegin(); id != made.rend(); ++id) parts[*id]->end();
  }

 private:
  struct Base {
    virtual ~Base() = default;
    virtual void end() {}
  };
  template <typename Part>
  struct Holder final : Base {
    Part value{};
    void end() override {
      if constexpr (requires(Part& p) { p.end(); }) value.end();
    }
  };

  // A small number per part type, given on the type's first use.
  static size_t& typeCount() {
    static size_t count = 0;
    return count;
  }
  template <typename Part>
  static size_t partId() {
    static const size_t id = typeCount()++;
    return id;
  }

  std::vector<std::unique_ptr<Base>> parts_;
  std::vector<size_t> made_;  // ids in the order their parts were made
};

// The module's one session.
inline Session& session() {
  static Session s;
  return s;
}

}  // namespace tessel::support
