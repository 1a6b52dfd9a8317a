// Told after every save of the preferences (the capture controller).
#pragma once

namespace PIM {

class IPreferencesListener {
 public:
  virtual void onPreferencesChanged() = 0;

 protected:
  ~IPreferencesListener() = default;
};

}  // namespace PIM
