// The user-visible texts of the system, read from the language file of the
// user's interface language: folder of the module + "Language" + separator +
// "strings." + three-letter code ("strings.ENU", "strings.DEU").
//
// Lifecycle: instance() creates the loader empty; loadResource() fills it
// once on the user-interface thread before any other thread starts; after
// that it is only read, from any thread, without a lock. freeInstance()
// destroys it at shutdown.
#pragma once

#include <map>
#include <string>

namespace PIM {

class UnicodeFileReader;

class ResourceLoader {
 public:
  static ResourceLoader* instance();
  static void freeInstance();

  // Finds the language file (full code, primary-language code, its first two
  // letters, then "ENU") and reads it. False when none exists; the texts then
  // stay as they were.
  bool loadResource();

  // The text stored for `key`, or `defaultValue` when there is none.
  std::u16string getStringValue(const std::u16string& key,
                                const std::u16string& defaultValue) const;
  // True when "LANGUAGE_IS_RIGHTTOLEFT" is "true" in any letter case.
  bool isRtl() const;

  // The abbreviation of the user's interface language ("DEA" for German
  // (Austria)), and of its primary language alone ("DEU"). Empty when the
  // platform does not know the language.
  std::u16string getDefaultLanguageCode() const;
  std::u16string getSimpleDefaultLanguageCode() const;

  // Adds the pairs of one language file; keys already present keep their
  // text.
  void readResourceString(const std::u16string& path);
  // The same from a reader already opened (tests and the fuzzer feed it
  // bytes from memory); the reader is closed at the end.
  void readResourceString(UnicodeFileReader& reader);

  const std::map<std::u16string, std::u16string>& strings() const { return strings_; }

 private:
  ResourceLoader() = default;

  std::map<std::u16string, std::u16string> strings_;
};

}  // namespace PIM
