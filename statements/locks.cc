#include "statements/locks.h"

#include "codegen/opspace.h"
#include "symbols/records.h"

namespace tav {

std::pair<uint32_t, int>* LockFrames::Frame::find(uint32_t object) {
  for (auto& e : entries)
    if (e.first == object) return &e;
  return nullptr;
}

const std::pair<uint32_t, int>* LockFrames::Frame::find(uint32_t object) const {
  for (const auto& e : entries)
    if (e.first == object) return &e;
  return nullptr;
}

bool LockFrames::indexed(const OpSpace& ops, uint32_t object) {
  return object != 0 && static_cast<char>(ops.at(object + osym::o_filtype)[0]) == osym::type_indexed;
}

void LockFrames::open() { frames_.emplace_back(); }

void LockFrames::close() {
  if (frames_.size() < 2) return;
  Frame inner = std::move(frames_.back());
  frames_.pop_back();
  Frame& outer = frames_.back();
  for (const auto& [object, st] : inner.entries) {
    if (st == kLocked) continue;
    if (auto* e = outer.find(object)) {
      if (e->second == kLocked) e->second = kMaybeNotLocked;
    } else {
      outer.entries.emplace_back(object, kMaybeNotLocked);
    }
  }
  if (inner.default_state != kLocked && outer.default_state == kLocked) outer.default_state = kMaybeNotLocked;
}

int LockFrames::record(const OpSpace& ops, uint32_t object, bool locked) {
  if (!indexed(ops, object)) return kLocked;
  Frame& f = frames_.back();
  int now = locked ? kLocked : kNotLocked;
  if (auto* e = f.find(object)) {
    int before = e->second;
    e->second = now;
    return before;
  }
  f.entries.emplace_back(object, now);
  return kLocked;
}

void LockFrames::reset_all() {
  for (Frame& f : frames_) {
    f.default_state = kNotLocked;
    for (auto& e : f.entries) e.second = kNotLocked;
  }
}

void LockFrames::settle_path_end() {
  Frame& f = frames_.back();
  f.default_state = kLocked;
  for (auto& e : f.entries) e.second = kLocked;
}

void LockFrames::settle_branches() {
  Frame& f = frames_.back();
  if (f.default_state < 0) f.default_state = kNotLocked;
  for (auto& e : f.entries)
    if (e.second < 0) e.second = kNotLocked;
}

bool LockFrames::not_locked(const OpSpace& ops, uint32_t object) const {
  if (!indexed(ops, object)) return false;
  for (auto f = frames_.rbegin(); f != frames_.rend(); ++f) {
    if (const auto* e = f->find(object)) return e->second == kNotLocked;
    if (f->default_state == kNotLocked) return true;
  }
  return false;
}

int LockFrames::state(uint32_t object) const {
  const Frame& f = frames_.back();
  if (const auto* e = f.find(object)) return e->second;
  return f.default_state;
}

}  // namespace tav
