// The installed help files open in the system's help viewer, through the
// shell's default action for them as the Help button does. The viewer's
// window title comes from inside the file, so it shows the file was read.
#include <windows.h>

#include <shellapi.h>

#include <gtest/gtest.h>

#include <string>

#include "core/utils.h"
#include "ui/help_file.h"

namespace PIM {
namespace {

struct ProcessHandle {
  HANDLE h = nullptr;
  ~ProcessHandle() {
    if (h) CloseHandle(h);
  }
};

struct FoundWindow {
  DWORD processId;
  HWND window;
};

BOOL CALLBACK findViewerWindow(HWND window, LPARAM param) {
  auto* found = reinterpret_cast<FoundWindow*>(param);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  wchar_t cls[64] = {};
  GetClassNameW(window, cls, 64);
  if (owner == found->processId && std::wstring(cls) == L"HH Parent") {
    found->window = window;
    return FALSE;
  }
  return TRUE;
}

std::wstring windowTitle(HWND window) {
  wchar_t title[256] = {};
  GetWindowTextW(window, title, 256);
  return title;
}

class HelpWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    HWND probe = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                 GetModuleHandleW(nullptr), nullptr);
    if (!probe) GTEST_SKIP() << "no window station to create windows in";
    DestroyWindow(probe);
  }

  // Opens `path` as the shell does and answers the viewer's window title;
  // closes the viewer again whatever happens.
  static std::wstring openAndClose(const std::u16string& path) {
    const std::wstring file(path.begin(), path.end());
    SHELLEXECUTEINFOW info = {};
    info.cbSize = sizeof info;
    info.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI;
    info.lpFile = file.c_str();
    info.nShow = SW_SHOWDEFAULT;
    if (!ShellExecuteExW(&info)) {
      ADD_FAILURE() << "the shell did not open the file, error " << GetLastError();
      return L"";
    }
    ProcessHandle process{info.hProcess};
    if (!process.h) {
      ADD_FAILURE() << "the shell started no viewer process";
      return L"";
    }
    FoundWindow found = {GetProcessId(process.h), nullptr};
    // Poll for the window while the viewer runs; a watchdog of 30 s ends a
    // viewer that never shows one.
    const ULONGLONG deadline = GetTickCount64() + 30000;
    while (!found.window && GetTickCount64() < deadline &&
           WaitForSingleObject(process.h, 20) == WAIT_TIMEOUT) {
      EnumWindows(findViewerWindow, reinterpret_cast<LPARAM>(&found));
    }
    std::wstring title;
    if (found.window) {
      title = windowTitle(found.window);
      PostMessageW(found.window, WM_CLOSE, 0, 0);
    } else {
      ADD_FAILURE() << "the viewer showed no window";
    }
    if (WaitForSingleObject(process.h, 30000) != WAIT_OBJECT_0) {
      ADD_FAILURE() << "the viewer did not close";
      TerminateProcess(process.h, 1);
    }
    return title;
  }
};

TEST_F(HelpWindowTest, EachLanguagesFileOpensWithItsOwnTitle) {
  // The viewer reads a file's title in the system's ANSI code page, which
  // is the language's own only on that language's Windows; elsewhere only
  // the product name, in Latin letters, reads the same.
  const struct {
    const char16_t* code;
    UINT codePage;
    const wchar_t* title;
  } cases[] = {
      {u"ENU", 1252, L"Ferrant Help"},
      {u"DEU", 1252, L"Ferrant-Hilfe"},
      {u"HEB", 1255, L"\u05e2\u05d6\u05e8\u05d4 \u05e9\u05dc Ferrant"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(toUtf8(c.code));
    const std::u16string path = getDllPath() + u"Help\\HELP_" + c.code + u".chm";
    ASSERT_TRUE(fileExists(path)) << toUtf8(path);
    const std::wstring title = openAndClose(path);
    if (GetACP() == c.codePage) {
      EXPECT_EQ(title, c.title);
    } else {
      EXPECT_NE(title.find(L"Ferrant"), std::wstring::npos);
    }
  }
}

// The Help button's own choice for this test's language opens too.
TEST_F(HelpWindowTest, TheFileTheHelpButtonChoosesOpens) {
  const std::u16string path = findHelpFile();
  ASSERT_NE(path, u"");
  EXPECT_NE(openAndClose(path), L"");
}

}  // namespace
}  // namespace PIM
