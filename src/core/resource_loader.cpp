#include "core/resource_loader.h"

#include <memory>

#include "core/debug_logger.h"
#include "core/unicode_file_reader.h"
#include "core/utils.h"
#include "platform/env.h"

namespace PIM {

namespace {

std::unique_ptr<ResourceLoader> g_instance;

constexpr uint16_t kPrimaryLanguageMask = 0x3FF;

std::u16string languageFilePath(const std::u16string& code) {
  return getDllPath() + u"Language" + kPathSeparator + u"strings." + code;
}

// Only the usual blanks count; other Unicode spaces may start a key.
bool isBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

std::u16string asciiLower(std::u16string text) {
  for (auto& c : text) {
    if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
  }
  return text;
}

}  // namespace

ResourceLoader* ResourceLoader::instance() {
  if (!g_instance) g_instance.reset(new ResourceLoader());
  return g_instance.get();
}

void ResourceLoader::freeInstance() { g_instance.reset(); }

bool ResourceLoader::loadResource() {
  PIM_ENTRY("PIM::ResourceLoader::loadResource");
  std::u16string code = getDefaultLanguageCode();
  std::u16string path = languageFilePath(code);
  if (!fileExists(path)) {
    PIM_LOG_ERR(
        "There is no language file for the current language & sub language: " << toUtf8(code));
    code = getSimpleDefaultLanguageCode();
    path = languageFilePath(code);
    if (!fileExists(path)) {
      PIM_LOG_ERR("There is no language file for the current language: " << toUtf8(code));
      code = code.substr(0, 2);
      path = languageFilePath(code);
      if (!fileExists(path)) {
        PIM_LOG_ERR(
            "There is no language file for the current language 2 letter code: " << toUtf8(code));
        path = languageFilePath(u"ENU");
        if (!fileExists(path)) {
          PIM_LOG_ERR("Unable to resolve Language file path");
          return false;
        }
      }
    }
  }
  readResourceString(path);
  return true;
}

std::u16string ResourceLoader::getStringValue(const std::u16string& key,
                                              const std::u16string& defaultValue) const {
  auto found = strings_.find(key);
  return found == strings_.end() ? defaultValue : found->second;
}

bool ResourceLoader::isRtl() const {
  return asciiLower(getStringValue(u"LANGUAGE_IS_RIGHTTOLEFT", u"")) == u"true";
}

std::u16string ResourceLoader::getDefaultLanguageCode() const {
  PIM_ENTRY("PIM::ResourceLoader::getDefaultLanguageCode");
  return env()->languageAbbreviation(env()->userUiLanguage());
}

std::u16string ResourceLoader::getSimpleDefaultLanguageCode() const {
  PIM_ENTRY("PIM::ResourceLoader::getSimpleDefaultLanguageCode");
  return env()->languageAbbreviation(uint16_t(env()->userUiLanguage() & kPrimaryLanguageMask));
}

void ResourceLoader::readResourceString(const std::u16string& path) {
  PIM_ENTRY("PIM::ResourceLoader::readResourceString");
  UnicodeFileReader reader;
  reader.open(path);  // a failure is logged, and the reader then gives no line
  readResourceString(reader);
}

void ResourceLoader::readResourceString(UnicodeFileReader& reader) {
  PIM_ENTRY("PIM::ResourceLoader::readResourceString");
  std::u16string line;
  while (reader.getLine(line)) {
    if (!line.empty() && line[0] == u'#') continue;
    if (line.empty()) {
      PIM_LOG_ERR("Skipping the empty line");
      continue;
    }
    if (isBlank(line[0])) {
      PIM_LOG_ERR("Skipping the line that begins with space");
      continue;
    }
    // Without "=" the search position wraps round to the start, so the
    // whole line is both key and value.
    auto equals = line.find(u'=');
    std::u16string key = line.substr(0, equals);
    std::u16string value = equals == std::u16string::npos ? line : line.substr(equals + 1);
    value = strReplace(value, u"\n", u"");
    value = strReplace(value, u"\\n", u"\n");
    value = strReplace(value, u"\\t", u"\t");
    if (key.empty() || value.empty()) {
      PIM_LOG_ERR("Key or value missing, skip this item");
      continue;
    }
    strings_.emplace(std::move(key), std::move(value));  // the first text of a key wins
  }
  reader.close();
}

}  // namespace PIM
