// Which compiled help file the Help button opens: "Help" beside the DLL,
// "HELP_" + language code + ".chm", tried for the full language code, then
// for the first two letters of the primary language's code, then English.
#pragma once

#include <functional>
#include <string>

namespace PIM {

// The file to open, or empty text when no help is installed at all.
// `helpFolder` ends with a path separator. Falling back to English, or
// finding nothing, writes its error line to the log; the user is not told.
std::u16string findHelpFile(const std::u16string& helpFolder, const std::u16string& fullCode,
                            const std::u16string& simpleCode,
                            const std::function<bool(const std::u16string&)>& exists);

// The same for the running module and the user's language.
std::u16string findHelpFile();

}  // namespace PIM
