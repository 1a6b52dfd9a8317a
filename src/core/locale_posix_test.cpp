#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "core/resource_loader.h"
#include "platform/env.h"

namespace PIM {
namespace {

// Sets (or with nullopt removes) one environment variable and puts the old
// value back at the end.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    set(value);
  }
  ~ScopedVariable() { set(old_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void set(const std::optional<std::string>& value) {
    if (value) {
      setenv(name_, value->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }
  const char* name_;
  std::optional<std::string> old_;
};

struct Locale {
  std::optional<std::string> all, messages, lang;
};

uint16_t uiLanguageWith(const Locale& locale) {
  ScopedVariable all("LC_ALL", locale.all);
  ScopedVariable messages("LC_MESSAGES", locale.messages);
  ScopedVariable lang("LANG", locale.lang);
  return Env::platformDefault()->userUiLanguage();
}

TEST(PosixLocale, MessagesLanguageFollowsThePosixPrecedence) {
  EXPECT_EQ(uiLanguageWith({"de_AT.UTF-8", "fr_FR.UTF-8", "it_IT.UTF-8"}), 0x0C07);
  EXPECT_EQ(uiLanguageWith({std::nullopt, "fr_FR.UTF-8", "it_IT.UTF-8"}), 0x040C);
  EXPECT_EQ(uiLanguageWith({std::nullopt, std::nullopt, "it_IT.UTF-8"}), 0x0410);
  // Set but empty counts as not set.
  EXPECT_EQ(uiLanguageWith({"", "", "pt_BR.UTF-8"}), 0x0416);
  // Nothing set, or the C locale: English (United States).
  EXPECT_EQ(uiLanguageWith({std::nullopt, std::nullopt, std::nullopt}), 0x0409);
  EXPECT_EQ(uiLanguageWith({"C", "de_DE.UTF-8", "de_DE.UTF-8"}), 0x0409);
  EXPECT_EQ(uiLanguageWith({std::nullopt, "POSIX", "de_DE.UTF-8"}), 0x0409);
}

TEST(PosixLocale, LanguageCodesComeFromTheLocale) {
  ScopedVariable all("LC_ALL", std::nullopt);
  ScopedVariable messages("LC_MESSAGES", std::nullopt);
  ScopedVariable lang("LANG", "de_AT.UTF-8");
  ResourceLoader* loader = ResourceLoader::instance();
  EXPECT_EQ(loader->getDefaultLanguageCode(), u"DEA");
  EXPECT_EQ(loader->getSimpleDefaultLanguageCode(), u"DEU");
  ResourceLoader::freeInstance();
}

}  // namespace
}  // namespace PIM
