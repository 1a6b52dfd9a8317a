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
#include <functional>
#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "prefs/preferences_listener.h"

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

class RegistryKey;

// The settings live under the current user's "Software\Corvel\CVTK" and its
// subkeys "Calendar", "Contacts", "Email" and "Tasks" (the registry on
// Windows, the per-user key store elsewhere). Loaded when the add-in
// connects, saved whole when the preferences sheet is confirmed.
class Preferences : public PreferenceValues {
 public:
  // The one process-wide object; it lives until the process ends.
  static Preferences& instance();

  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  // Reads every value (defaults for missing ones; the default calendar,
  // contacts and task folders of the default store for a list never saved),
  // then saves, so that the store holds every value afterwards.
  void load();
  // Reads every value as load does, and writes nothing.
  void read();
  // Writes every value, then tells the listeners.
  void save();
  // For a process that changes settings while others may run: under the
  // store's lock, reads every value again, lets `edit` change them and writes
  // only the values it changed, so that changes made meanwhile elsewhere are
  // kept. `edit` returns false to write nothing. Listeners are told of an
  // edit. False, with the reason in `why`, when the store could not be read
  // or written; nothing is kept then where the store can undo it.
  bool change(const std::function<bool(PreferenceValues&)>& edit, std::string& why);
  // Reads only the calendar's days before and after, and writes nothing: for
  // tools that decode a recurrence as a capture would but have no store
  // session to find default folders with (a load would save empty lists).
  void loadCalendarWindow();

  // Listeners are told in the order they were added. Adding one twice or
  // removing an absent one is a programming error (logged).
  void addListener(IPreferencesListener* listener);
  void removeListener(IPreferencesListener* listener);
  void notifyListeners();

  // Every value back to its default (a first start, and tests); listeners
  // stay.
  void resetToDefaults() { static_cast<PreferenceValues&>(*this) = PreferenceValues(); }

  // A folder identity as a binary value: a 32-bit little-endian length and
  // the folder's identifier, then the same for its store's.
  static std::vector<uint8_t> toKeyData(const OutlookFolder& folder);
  // False, with a log line, when the bytes do not hold both identifiers;
  // bytes after them are ignored.
  static bool fromKeyData(const std::vector<uint8_t>& bytes, OutlookFolder& folder);

  // The list of a kind from its subkey: the default folder when no count was
  // ever saved, else the saved folders that can be read, each once.
  static void loadFolders(const RegistryKey& key, std::vector<OutlookFolder>& folders,
                          const OutlookFolder& defaultFolder);
  static bool saveFolders(RegistryKey& key, const std::vector<OutlookFolder>& folders);

 private:
  Preferences() = default;

  static void readValues(PreferenceValues& values);
  // Every value, or with `before` only those that differ from it; false when
  // a write failed.
  static bool writeValues(const PreferenceValues& values, const PreferenceValues* before);

  std::vector<IPreferencesListener*> listeners_;
};

}  // namespace PIM
