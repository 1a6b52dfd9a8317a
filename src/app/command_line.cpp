#include "app/command_line.h"

#include <cstring>

namespace PIM {

bool parseCommonOptions(int argc, char** argv, CommonOptions& options, std::string& error) {
  struct Known {
    const char* name;
    std::string* value;
  } const known[] = {{"--store", &options.store}, {"--data-dir", &options.dataDir}};
  for (int i = 0; i < argc; ++i) {
    bool taken = false;
    for (const Known& option : known) {
      const size_t length = std::strlen(option.name);
      if (!std::strcmp(argv[i], option.name)) {
        if (i + 1 >= argc) {
          error = std::string(option.name) + " needs a value";
          return false;
        }
        *option.value = argv[++i];
        taken = true;
      } else if (!std::strncmp(argv[i], option.name, length) && argv[i][length] == '=') {
        *option.value = argv[i] + length + 1;
        taken = true;
      }
      if (!taken) continue;
      // An empty value would quietly mean the default.
      if (option.value->empty()) {
        error = std::string(option.name) + " needs a value, not empty text";
        return false;
      }
      break;
    }
    if (!taken) options.rest.push_back(argv[i]);
  }
  return true;
}

}  // namespace PIM
