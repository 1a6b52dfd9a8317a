// An in-memory registry for the registration script's tests and fuzz target:
// keys and value names compared ignoring case as the registry compares them,
// a listing of everything in it, and failures on request.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "addin/registry_script.h"
#include "core/utils.h"

namespace PIM::testing {

class MemoryRegistry final : public RegistryTarget {
 public:
  MemoryRegistry() {
    for (RegistryRoot r :
         {RegistryRoot::ClassesRoot, RegistryRoot::CurrentUser, RegistryRoot::LocalMachine}) {
      roots_[int(r)] = std::make_shared<Node>();
      roots_[int(r)]->name = fromUtf8(registryRootName(r));
    }
  }

  // Makes `path` ("HKCR\A\B", every level created) and returns its node's
  // handle, for setting up what was there before a script ran.
  KeyHandle make(const std::string& path) {
    std::vector<std::u16string> parts = splitString(fromUtf8(path), u"\\");
    Node* node = rootNamed(parts.front());
    for (size_t i = 1; i < parts.size(); ++i) {
      auto& child = node->keys[fold(parts[i])];
      if (!child) child = std::make_shared<Node>(Node{parts[i], {}, {}});
      node = child.get();
    }
    return node;
  }
  void putString(const std::string& path, const std::string& name, const std::string& text) {
    static_cast<Node*>(make(path))->values[fold(fromUtf8(name))] = {fromUtf8(name),
                                                                    "s '" + text + "'"};
  }

  // Every key and value, one line each, sorted:
  //   HKCR\A\B
  //   HKCR\A\B = s 'default text'
  //   HKCR\A\B [Name] = d 3
  std::vector<std::string> listing() const {
    std::vector<std::string> lines;
    for (const auto& root : roots_) list(*root, toUtf8(root->name), lines, true);
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  // The next call of `operation` ("createKey", "openKey", "setValue",
  // "deleteValue", "deleteTree") on a key or value of this name fails with
  // `error`; each request fails once.
  void failOnce(const std::string& operation, const std::string& name, long error) {
    failures_.push_back({operation, fold(fromUtf8(name)), error});
  }

  int openHandles() const { return int(open_.size()); }

  KeyHandle root(RegistryRoot root) override { return roots_[int(root)].get(); }

  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override {
    *out = nullptr;
    if (long f = failure("createKey", name)) return f;
    auto& child = node(parent)->keys[fold(name)];
    if (!child) child = std::make_shared<Node>(Node{name, {}, {}});
    return opened(child, out);
  }

  long openKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override {
    *out = nullptr;
    if (long f = failure("openKey", name)) return f;
    auto it = node(parent)->keys.find(fold(name));
    if (it == node(parent)->keys.end()) return kKeyNotFound;
    return opened(it->second, out);
  }

  void closeKey(KeyHandle key) override {
    auto it = open_.find(key);
    if (it == open_.end()) throw std::logic_error("closeKey of a handle that is not open");
    open_.erase(it);
  }

  long setString(KeyHandle key, const std::u16string& name, const std::u16string& text) override {
    if (long f = failure("setValue", name)) return f;
    node(key)->values[fold(name)] = {name, "s '" + toUtf8(text) + "'"};
    return kKeyOk;
  }

  long setDword(KeyHandle key, const std::u16string& name, uint32_t value) override {
    if (long f = failure("setValue", name)) return f;
    node(key)->values[fold(name)] = {name, "d " + std::to_string(value)};
    return kKeyOk;
  }

  long deleteValue(KeyHandle key, const std::u16string& name) override {
    if (long f = failure("deleteValue", name)) return f;
    return node(key)->values.erase(fold(name)) ? kKeyOk : kKeyNotFound;
  }

  long deleteTree(KeyHandle parent, const std::u16string& name) override {
    if (long f = failure("deleteTree", name)) return f;
    return node(parent)->keys.erase(fold(name)) ? kKeyOk : kKeyNotFound;
  }

 private:
  struct Value {
    std::u16string name;
    std::string shown;  // "s 'text'" or "d 3"
  };
  struct Node {
    std::u16string name;
    std::map<std::u16string, std::shared_ptr<Node>> keys;  // by folded name
    std::map<std::u16string, Value> values;                // by folded name
  };
  struct Failure {
    std::string operation;
    std::u16string name;
    long error;
  };

  static std::u16string fold(std::u16string s) {
    for (char16_t& c : s)
      if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
    return s;
  }

  Node* rootNamed(const std::u16string& name) {
    for (auto& root : roots_)
      if (root->name == name) return root.get();
    throw std::logic_error("no root " + toUtf8(name));
  }

  // Handles are node addresses; a handle must be open (or a root) when used.
  Node* node(KeyHandle key) {
    for (auto& root : roots_)
      if (root.get() == key) return root.get();
    if (!open_.count(key)) throw std::logic_error("use of a handle that is not open");
    return static_cast<Node*>(key);
  }

  long opened(const std::shared_ptr<Node>& n, KeyHandle* out) {
    // Keeps the node alive while the handle is open, as the registry does
    // for a deleted key's handle.
    open_.insert({n.get(), n});
    *out = n.get();
    return kKeyOk;
  }

  long failure(const std::string& operation, const std::u16string& name) {
    for (auto it = failures_.begin(); it != failures_.end(); ++it) {
      if (it->operation == operation && it->name == fold(name)) {
        const long error = it->error;
        failures_.erase(it);
        return error;
      }
    }
    return kKeyOk;
  }

  static void list(const Node& n, const std::string& path, std::vector<std::string>& lines,
                   bool isRoot) {
    if (!isRoot) lines.push_back(path);
    for (const auto& [folded, value] : n.values) {
      lines.push_back(value.name.empty() ? path + " = " + value.shown
                                         : path + " [" + toUtf8(value.name) + "] = " + value.shown);
    }
    for (const auto& [folded, child] : n.keys)
      list(*child, path + "\\" + toUtf8(child->name), lines, false);
  }

  std::shared_ptr<Node> roots_[3];
  std::multimap<KeyHandle, std::shared_ptr<Node>> open_;
  std::vector<Failure> failures_;
};

#ifdef FERRANT_SHARED_TESTDATA
// The add-in's scripts as the source tree has them, decoded; empty when the
// file cannot be read. The source folder is the one the shared test data's
// folder is named from ("<source>/../shared/testdata").
inline std::u16string addinScriptText(const char* fileName) {
  const std::filesystem::path path =
      std::filesystem::path(FERRANT_SHARED_TESTDATA).parent_path().parent_path().parent_path() /
      "src" / "addin" / fileName;
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::u16string text;
  if (!in || !decodeRegistryScript(bytes, text)) return {};
  return text;
}
#endif

// Everything the two scripts of the add-in write, as MemoryRegistry lists it.
inline std::vector<std::string> addinScriptLines(const std::string& modulePath,
                                                 const std::string& appId) {
  const std::string clsid = "HKCR\\CLSID\\{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}";
  const std::string addin = "HKLM\\Software\\Microsoft\\Office\\Outlook\\Addins\\Ferrant.PimAddin";
  std::vector<std::string> lines = {
      "HKCR\\AppID\\" + appId,
      "HKCR\\AppID\\" + appId + " = s 'Ferrant'",
      "HKCR\\AppID\\Ferrant.DLL",
      "HKCR\\AppID\\Ferrant.DLL [AppID] = s '" + appId + "'",
      clsid,
      clsid + " = s 'PimAddin Class'",
      clsid + " [AppID] = s '" + appId + "'",
      clsid + "\\InprocServer32",
      clsid + "\\InprocServer32 = s '" + modulePath + "'",
      clsid + "\\InprocServer32 [ThreadingModel] = s 'Apartment'",
      clsid + "\\ProgID",
      clsid + "\\ProgID = s 'Ferrant.PimAddin.1'",
      clsid + "\\Programmable",
      clsid + "\\TypeLib",
      clsid + "\\TypeLib = s '{A88DD810-57E2-49F7-B599-59AFA1953CAE}'",
      clsid + "\\VersionIndependentProgID",
      clsid + "\\VersionIndependentProgID = s 'Ferrant.PimAddin'",
      "HKCR\\Ferrant.PimAddin",
      "HKCR\\Ferrant.PimAddin = s 'PimAddin Class'",
      "HKCR\\Ferrant.PimAddin\\CLSID",
      "HKCR\\Ferrant.PimAddin\\CLSID = s '{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}'",
      "HKCR\\Ferrant.PimAddin\\CurVer",
      "HKCR\\Ferrant.PimAddin\\CurVer = s 'Ferrant.PimAddin.1'",
      "HKCR\\Ferrant.PimAddin.1",
      "HKCR\\Ferrant.PimAddin.1 = s 'PimAddin Class'",
      "HKCR\\Ferrant.PimAddin.1\\CLSID",
      "HKCR\\Ferrant.PimAddin.1\\CLSID = s '{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}'",
      addin,
      addin + " [CommandLineSafe] = d 0",
      addin + " [Description] = s 'Corvel Brisa PIM Outlook Data Logging Addin'",
      addin + " [FriendlyName] = s 'Corvel Brisa PIM Addin'",
      addin + " [LoadBehavior] = d 3",
  };
  std::sort(lines.begin(), lines.end());
  return lines;
}

// The keys registration makes that removal leaves: the AppID and CLSID
// roots and the parents of the Addins entry.
inline std::vector<std::string> addinScriptsKeptLines() {
  return {"HKCR\\AppID",
          "HKCR\\CLSID",
          "HKLM\\Software",
          "HKLM\\Software\\Microsoft",
          "HKLM\\Software\\Microsoft\\Office",
          "HKLM\\Software\\Microsoft\\Office\\Outlook",
          "HKLM\\Software\\Microsoft\\Office\\Outlook\\Addins"};
}

}  // namespace PIM::testing
