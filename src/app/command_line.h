// The options the store commands share, taken out of their arguments:
// --store FILE (the store to read; the bundled sample mailbox by default)
// and --data-dir DIR (where the data files go; the usual data folder by
// default). Both also take the --name=value form.
#pragma once

#include <string>
#include <vector>

namespace PIM {

struct CommonOptions {
  std::string store;
  std::string dataDir;
  // What is left, in order, for the command itself.
  std::vector<char*> rest;
};

// False with `error` set when an option lacks its value.
bool parseCommonOptions(int argc, char** argv, CommonOptions& options, std::string& error);

}  // namespace PIM
