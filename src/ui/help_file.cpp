#include "ui/help_file.h"

#include "core/debug_logger.h"
#include "core/resource_loader.h"
#include "core/stack_logger.h"
#include "core/utils.h"
#include "platform/env.h"

namespace PIM {

std::u16string findHelpFile(const std::u16string& helpFolder, const std::u16string& fullCode,
                            const std::u16string& simpleCode,
                            const std::function<bool(const std::u16string&)>& exists) {
  PIM_ENTRY("PIM::PIMPrefsSheet::OnHelp");
  const auto named = [&](const std::u16string& code) {
    return helpFolder + u"HELP_" + code + u".chm";
  };
  if (!fullCode.empty() && exists(named(fullCode))) return named(fullCode);
  const std::u16string twoLetters = simpleCode.substr(0, 2);
  if (!twoLetters.empty() && exists(named(twoLetters))) return named(twoLetters);
  if (exists(named(u"ENU"))) {
    PIM_LOG_ERR("No help file installed for the current language, default shown instead.");
    return named(u"ENU");
  }
  PIM_LOG_ERR("No help file installed for the current language, and there is no default.");
  return {};
}

std::u16string findHelpFile() {
  const ResourceLoader* strings = ResourceLoader::instance();
  return findHelpFile(getDllPath() + u"Help" + kPathSeparator, strings->getDefaultLanguageCode(),
                      strings->getSimpleDefaultLanguageCode(), &fileExists);
}

}  // namespace PIM
