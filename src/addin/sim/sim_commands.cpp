#include "addin/sim/sim_commands.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <utility>

namespace Sim {
namespace {

bool toInt(const std::string& text, int& out) {
  const char* end = text.data() + text.size();
  auto [p, ec] = std::from_chars(text.data(), end, out);
  return ec == std::errc() && p == end && !text.empty();
}

bool toSeconds(const std::string& text, double& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  out = std::strtod(text.c_str(), &end);
  return end == text.c_str() + text.size() && out >= 0;
}

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return {};
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

bool parseBars(const std::string& text, std::vector<Bar>& bars, std::string& error) {
  bars.clear();
  if (text == "none") return true;
  size_t start = 0;
  while (true) {
    size_t comma = text.find(',', start);
    std::string item = text.substr(start, comma == std::string::npos ? comma : comma - start);
    Bar bar{item, 0};
    if (size_t colon = item.rfind(':'); colon != std::string::npos) {
      bar.name = item.substr(0, colon);
      if (!toInt(item.substr(colon + 1), bar.existingControls) || bar.existingControls < 0) {
        error = "--bars: bad control count in \"" + item + "\"";
        return false;
      }
    }
    if (bar.name.empty()) {
      error = "--bars: empty bar name in \"" + text + "\"";
      return false;
    }
    bars.push_back(bar);
    if (comma == std::string::npos) return true;
    start = comma + 1;
  }
}

Command make(Command::Kind kind, std::string text = {}, int number = 0) {
  Command c;
  c.kind = kind;
  c.text = std::move(text);
  c.number = number;
  return c;
}

// The flags that take no argument, and where each goes.
struct Flag {
  const char* word;
  bool Options::*field;
};
constexpr Flag kFlags[] = {
    {"fail-qi", &Options::failQi},         {"fail-add", &Options::failAdd},
    {"fail-advise", &Options::failAdvise}, {"null-app", &Options::nullApp},
    {"no-mapi", &Options::noMapi},         {"expect-connect-fail", &Options::expectConnectFail},
    {"dispatch", &Options::dispatch},
};

// The words that take a value.
const std::string kWithValue[] = {"mode",    "bars",   "fail-item", "addin",    "log",
                                  "timeout", "pump",   "click",     "wait-log", "wait-file",
                                  "script",  "dialog", "set-text",  "press",    "select-page"};

// The commands that take no argument.
constexpr std::pair<const char*, Command::Kind> kBare[] = {
    {"shutdown", Command::Kind::Shutdown},
    {"print-texts", Command::Kind::PrintTexts},
    {"wait-closed", Command::Kind::WaitClosed},
};

// A button's control ID, or the dialog manager's name for it.
bool toButton(const std::string& text, int& id) {
  const std::pair<const char*, int> named[] = {{"ok", 1}, {"cancel", 2}, {"help", 9}};
  for (const auto& [name, value] : named)
    if (text == name) {
      id = value;
      return true;
    }
  return toInt(text, id) && id >= 0 && id <= 0xFFFF;
}

class Parser {
 public:
  Parser(const ScriptReader& read, std::string& error) : read_(read), error_(error) {}

  bool run(const std::vector<std::string>& words, bool inScript) {
    for (size_t i = 0; i < words.size(); ++i) {
      std::string word = words[i];
      if (word.rfind("--", 0) == 0) {
        word.erase(0, 2);
      } else if (!inScript) {
        return fail("unexpected argument \"" + words[i] + "\"");
      }
      auto bare = std::find_if(std::begin(kBare), std::end(kBare),
                               [&](const auto& b) { return word == b.first; });
      if (bare != std::end(kBare)) {
        Command c = make(bare->second);
        c.timeoutS = timeoutS_;
        options.commands.push_back(c);
        continue;
      }
      bool isFlag = false;
      for (const Flag& f : kFlags)
        if (word == f.word) {
          options.*f.field = true;
          isFlag = true;
        }
      if (isFlag) continue;
      if (std::find(std::begin(kWithValue), std::end(kWithValue), word) == std::end(kWithValue))
        return fail("unknown command --" + word);
      if (i + 1 >= words.size()) return fail("--" + word + " needs a value");
      if (!withValue(word, words[++i], inScript)) return false;
    }
    return true;
  }

  Options options;

 private:
  bool withValue(const std::string& word, const std::string& value, bool inScript) {
    if (word == "mode") {
      if (value != "startup" && value != "after") return fail("--mode: startup or after");
      options.mode = value == "startup" ? Mode::Startup : Mode::After;
    } else if (word == "bars") {
      return parseBars(value, options.bars, error_);
    } else if (word == "fail-item") {
      if (!toInt(value, options.failItem) || options.failItem < 1)
        return fail("--fail-item: a bar number from 1");
    } else if (word == "addin") {
      options.addin = value;
    } else if (word == "log") {
      log_ = value;
    } else if (word == "timeout") {
      if (!toSeconds(value, timeoutS_)) return fail("--timeout: seconds");
    } else if (word == "pump") {
      Command c = make(Command::Kind::Pump);
      if (!toInt(value, c.number) || c.number < 0) return fail("--pump: milliseconds");
      options.commands.push_back(c);
    } else if (word == "click") {
      Command c = make(Command::Kind::Click, value);
      if (value.empty()) return fail("--click: a caption or #N");
      if (value[0] == '#' && (!toInt(value.substr(1), c.number) || c.number < 1))
        return fail("--click: #N counts buttons from 1");
      options.commands.push_back(c);
    } else if (word == "wait-log") {
      if (log_.empty()) return fail("--wait-log needs a --log before it");
      if (value.empty()) return fail("--wait-log: the text to wait for");
      Command c = make(Command::Kind::WaitLog, value);
      c.log = log_;
      c.timeoutS = timeoutS_;
      options.commands.push_back(c);
    } else if (word == "wait-file") {
      if (value.empty()) return fail("--wait-file: a path");
      Command c = make(Command::Kind::WaitFile, value);
      c.timeoutS = timeoutS_;
      options.commands.push_back(c);
    } else if (word == "dialog") {
      Command c = make(Command::Kind::Dialog, value);
      if (value.empty()) return fail("--dialog: a title or #N");
      if (value[0] == '#' && (!toInt(value.substr(1), c.number) || c.number < 1))
        return fail("--dialog: #N counts dialogs from 1");
      c.timeoutS = timeoutS_;
      options.commands.push_back(c);
    } else if (word == "set-text") {
      size_t equals = value.find('=');
      Command c = make(Command::Kind::SetText);
      if (equals == std::string::npos || !toInt(value.substr(0, equals), c.number) ||
          c.number < 0 || c.number > 0xFFFF)
        return fail("--set-text: ID=TEXT with a control ID");
      c.text = value.substr(equals + 1);
      options.commands.push_back(c);
    } else if (word == "press") {
      Command c = make(Command::Kind::Press, value);
      if (!toButton(value, c.number)) return fail("--press: a control ID, ok, cancel or help");
      options.commands.push_back(c);
    } else if (word == "select-page") {
      Command c = make(Command::Kind::SelectPage);
      if (!toInt(value, c.number) || c.number < 1)
        return fail("--select-page: a page number from 1");
      options.commands.push_back(c);
    } else if (word == "script") {
      if (inScript) return fail("--script inside a script");
      std::string text;
      if (!read_(value, text)) return fail("--script: cannot read " + value);
      return run(scriptWords(text), true);
    }
    return true;
  }

  bool fail(std::string why) {
    error_ = std::move(why);
    return false;
  }

  const ScriptReader& read_;
  std::string& error_;
  std::string log_;
  double timeoutS_ = 30.0;
};

}  // namespace

std::vector<std::string> scriptWords(const std::string& text) {
  std::vector<std::string> words;
  size_t start = text.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = trim(text.substr(start, end - start));
    start = end + 1;
    if (line.empty() || line[0] == '#') continue;
    size_t space = line.find_first_of(" \t");
    words.push_back(line.substr(0, space));
    if (space != std::string::npos) words.push_back(trim(line.substr(space)));
  }
  return words;
}

std::optional<Options> parseCommands(const std::vector<std::string>& words,
                                     const ScriptReader& read, std::string& error) {
  Parser parser(read, error);
  if (!parser.run(words, false)) return std::nullopt;
  return std::move(parser.options);
}

}  // namespace Sim
