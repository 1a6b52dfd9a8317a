// Every user setting: how and how often to capture, which folders of each
// kind, and which fields and how many items.
//
// The capture thread reads switches and limits during a run while the
// preferences sheet may write them on the user's thread; each setting is
// therefore a relaxed atomic (a change may reach part of a folder only, never
// a torn value). Folder lists are touched on the user's thread only.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "mapi/entry_id.h"

namespace PIM {

template <class T>
class Setting {
 public:
  constexpr explicit Setting(T value) : value_(value) {}
  Setting(const Setting& other) : value_(other.get()) {}
  Setting& operator=(const Setting& other) {
    set(other.get());
    return *this;
  }
  Setting& operator=(T value) {
    set(value);
    return *this;
  }
  T get() const { return value_.load(std::memory_order_relaxed); }
  void set(T value) { value_.store(value, std::memory_order_relaxed); }
  operator T() const { return get(); }

 private:
  std::atomic<T> value_;
};

enum CaptureMode : uint32_t { CaptureManual = 0, CaptureAtStartup = 1, CaptureAutomatic = 2 };

struct CalendarSettings {
  Setting<uint32_t> captureDaysBefore{45};
  Setting<uint32_t> captureDaysAfter{45};
  Setting<bool> captureBody{true};
  Setting<bool> captureOrganizer{true};
  Setting<bool> captureRequiredAttendees{true};
  Setting<bool> captureOptionalAttendees{true};
  Setting<bool> captureBusyStatus{true};
  Setting<bool> capturePriority{true};
  std::vector<OutlookFolder> folders;
};

struct ContactSettings {
  Setting<bool> captureCellularNumber{true};
  Setting<bool> capturePagerNumber{true};
  Setting<bool> captureHomeNumber{true};
  Setting<bool> captureCompanyName{true};
  Setting<bool> captureBusinessFax{true};
  Setting<bool> captureBusinessAddress{true};
  Setting<bool> captureHomeAddress{true};
  Setting<bool> captureHomeFax{true};
  Setting<bool> captureNotes{true};
  Setting<bool> captureTitle{true};
  std::vector<OutlookFolder> folders;
};

struct EmailSettings {
  Setting<uint32_t> captureEmailCount{500};
  Setting<bool> captureImportance{true};
  Setting<bool> captureFlagStatus{true};
  Setting<bool> captureSensitivity{true};
  Setting<bool> captureFlagRequest{true};
  Setting<bool> captureAttachments{true};
  std::vector<OutlookFolder> folders;
};

struct TaskSettings {
  Setting<uint32_t> maxTaskCapture{25};
  Setting<bool> captureStatus{true};
  Setting<bool> capturePriority{true};
  Setting<bool> captureBody{true};
  std::vector<OutlookFolder> folders;
};

// The values alone, copied whole by the preferences sheet and by tests.
struct PreferenceValues {
  CalendarSettings calendar;
  ContactSettings contacts;
  EmailSettings email;
  TaskSettings tasks;
  Setting<uint32_t> captureMode{CaptureAutomatic};
  Setting<uint32_t> captureInterval{15};  // minutes
};

class Preferences : public PreferenceValues {
 public:
  // The one process-wide object; it lives until the process ends.
  static Preferences& instance();

  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  // Every value back to its default (a first start, and tests).
  void resetToDefaults() { static_cast<PreferenceValues&>(*this) = PreferenceValues(); }

 private:
  Preferences() = default;
};

}  // namespace PIM
