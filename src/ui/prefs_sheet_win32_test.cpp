// The preferences sheet run for real: a driver on the test thread's timer
// switches pages, types, clicks boxes and buttons, answers the message box,
// and the test then reads what was saved.
#include "ui/prefs_sheet_win32.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "addin/outlook_app.h"
#include "capture/data_capture.h"
#include "core/utils.h"
#include "prefs/preferences.h"
#include "prefs/preferences_listener.h"
#include "store/store_test_util.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"
#include "ui/dialog_testing_win32.h"
#include "ui/folder_tree.h"
#include "ui/help_file.h"
#include "ui/page_controls.h"

namespace PIM {
namespace {

const wchar_t* wide(const std::u16string& text) {
  return reinterpret_cast<const wchar_t*>(text.c_str());
}

std::u16string windowText(HWND window) {
  wchar_t buffer[1024] = {};
  const int length = GetWindowTextW(window, buffer, 1024);
  return std::u16string(reinterpret_cast<const char16_t*>(buffer), size_t(length > 0 ? length : 0));
}

constexpr char16_t kTitle[] = u"Sheet Under Test";

// The texts the tests see; data fields and folders show their keys and
// names as they are.
std::u16string languageText(bool rightToLeft) {
  return std::u16string(rightToLeft ? u"LANGUAGE_IS_RIGHTTOLEFT=true\r\n" : u"") +
         u"PREFERENCES_DIALOG_TITLE=" + kTitle +
         u"\r\n"
         u"CAPTURE_TAB=Capture \u05D0\r\nDATA_TAB=Data\r\nFOLDERS_TAB=Folders\r\n"
         u"PREFERENCES_OK=Okay\r\nPREFERENCES_CANCEL=Drop\r\nPREFERENCES_HELP=Assist\r\n"
         u"ABOUT_PRODUCT_NAME=Product\r\nABOUT_DIALOG_TITLE=About it\r\n"
         u"ERROR_BAD_CAPTURE_PREFERENCES=Corrected:\r\n"
         u"ERROR_BAD_CAPTURE_INTERVAL=interval %1..%2\r\n"
         u"ERROR_BAD_CAPTURE_DAYS_BEFORE=before %1..%2\r\n"
         u"ERROR_BAD_CAPTURE_DAYS_AFTER=after %1..%2\r\n"
         u"ERROR_BAD_TASK_CAPTURE=tasks %1..%2\r\n"
         u"ERROR_BAD_EMAIL_CAPTURE=e-mails %1..%2\r\n";
}

// The driver of the sheet found by its title.
class SheetDriver : public testing::DialogDriver {
 public:
  SheetDriver() : DialogDriver(reinterpret_cast<const wchar_t*>(kTitle)) {}
};

HWND page(HWND sheet) { return PropSheet_GetCurrentPageHwnd(sheet); }
void typeInto(HWND sheet, int id, const wchar_t* text) {
  SendMessageW(GetDlgItem(page(sheet), id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
}
// As the user's click: the button handles it when the queue reaches it.
void click(HWND button) { PostMessageW(button, BM_CLICK, 0, 0); }
bool enabled(HWND sheet, int id) { return IsWindowEnabled(GetDlgItem(page(sheet), id)) != FALSE; }

// Depth first, the first item whose text is `text`.
HTREEITEM findItem(HWND tree, const std::u16string& text, HTREEITEM from = TVI_ROOT) {
  HTREEITEM item = from == TVI_ROOT ? TreeView_GetRoot(tree) : TreeView_GetChild(tree, from);
  for (; item; item = TreeView_GetNextSibling(tree, item)) {
    wchar_t buffer[256] = {};
    TVITEMW data = {};
    data.mask = TVIF_TEXT;
    data.hItem = item;
    data.pszText = buffer;
    data.cchTextMax = 256;
    TreeView_GetItem(tree, &data);
    if (text == reinterpret_cast<const char16_t*>(buffer)) return item;
    if (HTREEITEM below = findItem(tree, text, item)) return below;
  }
  return nullptr;
}
int checkState(HWND tree, HTREEITEM item) {
  return int(TreeView_GetItemState(tree, item, TVIS_STATEIMAGEMASK) >> 12);
}
// A mouse click on the item's check box, found by the tree's own hit test.
bool clickBox(HWND tree, HTREEITEM item) {
  TreeView_EnsureVisible(tree, item);
  const POINT box = testing::stateIconPoint(tree, item);
  if (box.x < 0) return false;
  const LPARAM at = MAKELPARAM(box.x, box.y);
  SendMessageW(tree, WM_LBUTTONDOWN, MK_LBUTTON, at);
  SendMessageW(tree, WM_LBUTTONUP, 0, at);
  return true;
}

class PrefsSheetTest : public store::testing::StoreTest {
 protected:
  void SetUp() override {
    if (!testing::canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
    store::testing::StoreTest::SetUp();
    OutlookApp::instance()->setMapiSession(session_.get());
    Preferences::instance().resetToDefaults();
    Preferences::instance().calendar.folders = {identity("calendar")};
    testing::useLanguageText(languageText(false));
  }
  void TearDown() override {
    PIMPrefsSheet::setHelpOpener(nullptr);
    ResourceLoader::freeInstance();
    Preferences::instance().resetToDefaults();
    OutlookApp::instance()->setMapiSession(nullptr);
    store::testing::StoreTest::TearDown();
  }

  OutlookFolder identity(const std::string& key) const {
    const store::Ref ref = profile_->byKey(key);
    return {EntryId(profile_->entryId(ref)),
            EntryId(profile_->entryId(profile_->storeRef(ref.store)))};
  }

  // What the key store holds, read into the preferences afresh.
  static PreferenceValues saved() {
    Preferences::instance().resetToDefaults();
    Preferences::instance().read();
    return Preferences::instance();
  }

  void pressWhileLoading(int button);

  void runSheet(SheetDriver& driver) {
    driver.run([] { ShowPreferences(); });
    EXPECT_TRUE(driver.done()) << "stuck at: " << driver.stuckAt();
  }

  // Counts the times the settings' listeners were told of a change, as the
  // capture controller is.
  struct Told : IPreferencesListener {
    void onPreferencesChanged() override { ++times; }
    int times = 0;
  };

  testing::MemoryKeyStoreEnv keys_;
};

TEST_F(PrefsSheetTest, BadValuesAreListedInOneMessageCorrectedAndOnlyTheNextOkSaves) {
  std::u16string message;
  SheetDriver driver;
  // The Data page opened and changed: a refused OK must not apply it.
  driver.add("open data", [](HWND sheet) {
    PropSheet_SetCurSel(sheet, nullptr, 1);
    return true;
  });
  driver.add("untick status", [](HWND sheet) {
    HWND tree = GetDlgItem(page(sheet), IDC_DATA_TREE);
    HTREEITEM status = findItem(tree, u"PREFERENCES_DATA_TASKS_STATUS");
    return status && clickBox(tree, status) && checkState(tree, status) == 1;
  });
  driver.add("back to capture", [](HWND sheet) {
    PropSheet_SetCurSel(sheet, nullptr, 0);
    return true;
  });
  driver.add("type", [](HWND sheet) {
    click(GetDlgItem(page(sheet), IDC_CAPTURE_MANUALLY));
    typeInto(sheet, IDC_CAPTURE_INTERVAL, L"0");
    typeInto(sheet, IDC_CAPTURE_DAYS_BEFORE, L"-1");
    typeInto(sheet, IDC_CAPTURE_DAYS_AFTER, L"181");
    typeInto(sheet, IDC_CAPTURE_TASKS, L"30");
    typeInto(sheet, IDC_CAPTURE_EMAILS, L"lots");
    click(GetDlgItem(sheet, IDOK));
    return true;
  });
  driver.add("answer the message", [&message](HWND sheet) {
    HWND box = SheetDriver::ownedDialog(sheet);
    if (!box) return false;
    message = windowText(GetDlgItem(box, 0xFFFF));
    EXPECT_EQ(toUtf8(windowText(box)), "Product");
    PostMessageW(box, WM_COMMAND, IDOK, 0);
    return true;
  });
  driver.add("corrected values shown, nothing applied", [](HWND sheet) {
    if (SheetDriver::ownedDialog(sheet)) return false;
    const std::pair<int, std::u16string> shown[] = {{IDC_CAPTURE_INTERVAL, u"1"},
                                                    {IDC_CAPTURE_DAYS_BEFORE, u"0"},
                                                    {IDC_CAPTURE_DAYS_AFTER, u"180"},
                                                    {IDC_CAPTURE_TASKS, u"30"},
                                                    {IDC_CAPTURE_EMAILS, u"1"}};
    for (const auto& [id, text] : shown)
      EXPECT_EQ(toUtf8(windowText(GetDlgItem(page(sheet), id))), toUtf8(text)) << id;
    EXPECT_TRUE(Preferences::instance().tasks.captureStatus.get()) << "Data page applied";
    EXPECT_EQ(Preferences::instance().captureMode.get(), uint32_t(CaptureAutomatic));
    click(GetDlgItem(sheet, IDOK));
    return true;
  });
  runSheet(driver);

  EXPECT_EQ(toUtf8(message),
            "Corrected:\n\ninterval 1..120\nbefore 0..180\nafter 0..180\ne-mails 1..1000");
  const PreferenceValues values = saved();
  EXPECT_EQ(values.captureMode.get(), uint32_t(CaptureManual));
  EXPECT_EQ(values.captureInterval.get(), 1u);
  EXPECT_EQ(values.calendar.captureDaysBefore.get(), 0u);
  EXPECT_EQ(values.calendar.captureDaysAfter.get(), 180u);
  EXPECT_EQ(values.tasks.maxTaskCapture.get(), 30u);
  EXPECT_EQ(values.email.captureEmailCount.get(), 1u);
  EXPECT_FALSE(values.tasks.captureStatus.get());
  EXPECT_TRUE(values.tasks.capturePriority.get());
  // The Folders page was never opened: its lists are saved as they were.
  EXPECT_EQ(values.calendar.folders, std::vector<OutlookFolder>({identity("calendar")}));
}

TEST_F(PrefsSheetTest, OkWithTheCapturePageAloneSavesTheWholeSet) {
  Preferences::instance().captureMode = CaptureAtStartup;
  Preferences::instance().contacts.captureHomeFax = false;
  Told told;
  Preferences::instance().addListener(&told);
  SheetDriver driver;
  driver.add("mode shown", [](HWND sheet) {
    EXPECT_EQ(IsDlgButtonChecked(page(sheet), IDC_CAPTURE_STARTUP), UINT(BST_CHECKED));
    EXPECT_FALSE(enabled(sheet, IDC_CAPTURE_INTERVAL));
    EXPECT_EQ(toUtf8(windowText(GetDlgItem(page(sheet), IDC_CAPTURE_EMAILS))), "500");
    typeInto(sheet, IDC_CAPTURE_TASKS, L" 7 ");
    // Pressed by message rather than clicked: the same OK.
    PostMessageW(sheet, PSM_PRESSBUTTON, PSBTN_OK, 0);
    return true;
  });
  runSheet(driver);
  Preferences::instance().removeListener(&told);
  EXPECT_EQ(told.times, 1);
  const PreferenceValues values = saved();
  EXPECT_EQ(values.captureMode.get(), uint32_t(CaptureAtStartup));
  EXPECT_EQ(values.tasks.maxTaskCapture.get(), 7u);
  EXPECT_FALSE(values.contacts.captureHomeFax.get());
  EXPECT_TRUE(values.contacts.captureBusinessFax.get());
  EXPECT_EQ(values.calendar.folders, std::vector<OutlookFolder>({identity("calendar")}));
  EXPECT_NE(keys_.store().text().find("maxTaskCapture"), std::string::npos) << keys_.store().text();
}

TEST_F(PrefsSheetTest, RadioButtonsEnableTheIntervalAndCancelSavesNothing) {
  SheetDriver driver;
  struct Click {
    int radio;
    bool intervalOn;
  };
  for (const Click c : {Click{IDC_CAPTURE_STARTUP, false}, Click{IDC_CAPTURE_AUTOMATIC, true},
                        Click{IDC_CAPTURE_MANUALLY, false}, Click{IDC_CAPTURE_AUTOMATIC, true}}) {
    driver.add("click", [c](HWND sheet) {
      click(GetDlgItem(page(sheet), c.radio));
      return true;
    });
    driver.add("look", [c](HWND sheet) {
      if (IsDlgButtonChecked(page(sheet), c.radio) != BST_CHECKED) return false;
      for (int id : {IDC_CAPTURE_INTERVAL, IDC_CAPTURE_EVERY, IDC_CAPTURE_MINUTES})
        EXPECT_EQ(enabled(sheet, id), c.intervalOn) << "radio " << c.radio << " control " << id;
      return true;
    });
  }
  driver.add("cancel", [](HWND sheet) {
    typeInto(sheet, IDC_CAPTURE_TASKS, L"9");
    click(GetDlgItem(sheet, IDCANCEL));
    return true;
  });
  Told told;
  Preferences::instance().addListener(&told);
  runSheet(driver);
  Preferences::instance().removeListener(&told);
  EXPECT_EQ(told.times, 0);
  EXPECT_EQ(keys_.store().text(), testing::MemoryKeyStore().text()) << "nothing written";
}

TEST_F(PrefsSheetTest, OkWithNoModeChosenKeepsTheSheetOpenWithoutAWord) {
  SheetDriver driver;
  int ticksAfterOk = 0;
  driver.add("clear the mode, ok", [](HWND sheet) {
    for (int id : {IDC_CAPTURE_AUTOMATIC, IDC_CAPTURE_STARTUP, IDC_CAPTURE_MANUALLY})
      CheckDlgButton(page(sheet), id, BST_UNCHECKED);
    click(GetDlgItem(sheet, IDOK));
    return true;
  });
  // The click has been handled once a few ticks have passed over an empty
  // queue: still open, and no message box.
  driver.add("still open", [&ticksAfterOk](HWND sheet) {
    EXPECT_EQ(SheetDriver::ownedDialog(sheet), nullptr);
    return ++ticksAfterOk == 3;
  });
  driver.add("cancel", [](HWND sheet) {
    click(GetDlgItem(sheet, IDCANCEL));
    return true;
  });
  runSheet(driver);
  EXPECT_EQ(keys_.store().text(), testing::MemoryKeyStore().text()) << "nothing written";
}

TEST_F(PrefsSheetTest, FoldersTickedAfterTheLoadAreSaved) {
  SheetDriver driver;
  driver.add("open folders", [](HWND sheet) {
    PropSheet_SetCurSel(sheet, nullptr, 2);
    return true;
  });
  driver.add("tick reports, untick calendar", [](HWND sheet) {
    HWND tree = GetDlgItem(page(sheet), IDC_FOLDERS_TREE);
    HTREEITEM reports = findItem(tree, u"Reports");
    HTREEITEM calendar = findItem(tree, u"Calendar");
    if (!reports || !calendar) return false;  // still loading
    EXPECT_EQ(checkState(tree, calendar), 2);
    EXPECT_EQ(checkState(tree, reports), 1);
    EXPECT_TRUE(clickBox(tree, reports));
    EXPECT_TRUE(clickBox(tree, calendar));
    click(GetDlgItem(sheet, IDOK));
    return true;
  });
  runSheet(driver);
  const PreferenceValues values = saved();
  EXPECT_EQ(values.email.folders, std::vector<OutlookFolder>({identity("reports")}));
  EXPECT_TRUE(values.calendar.folders.empty());
  EXPECT_TRUE(values.contacts.folders.empty());
  EXPECT_TRUE(values.tasks.folders.empty());
}

// Presses `button` while the Folders page's load waits where it first asks
// for a folder's subfolders; the load goes on once the press is queued.
void PrefsSheetTest::pressWhileLoading(int button) {
  store::ScopedFaults faults;
  faults->recordCalls();
  {
    // The same calls as the page: the default store on opening, then the
    // load.
    FolderTree dry;
    ASSERT_EQ(dry.findDefaultStore(session_.get()), S_OK);
    dry.buildFolderList(session_.get());
  }
  const std::vector<std::string> calls = faults->recordedCalls();
  const auto first = std::find(calls.begin(), calls.end(), "IMAPIFolder::GetHierarchyTable");
  ASSERT_NE(first, calls.end());
  faults->clear();
  std::mutex lock;
  std::condition_variable changed;
  bool pressed = false;
  faults->atCall(unsigned(first - calls.begin()) + 1, [&] {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, std::chrono::seconds(20), [&] { return pressed; });
  });

  SheetDriver driver;
  driver.add("open folders", [](HWND sheet) {
    PropSheet_SetCurSel(sheet, nullptr, 2);
    return true;
  });
  driver.add("press while loading", [&](HWND sheet) {
    HWND tree = GetDlgItem(page(sheet), IDC_FOLDERS_TREE);
    EXPECT_EQ(TreeView_GetCount(tree), 1u) << "the loading item alone";
    click(GetDlgItem(sheet, button));
    {
      std::lock_guard<std::mutex> guard(lock);
      pressed = true;
    }
    changed.notify_all();
    return true;
  });
  runSheet(driver);
}

TEST_F(PrefsSheetTest, OkWhileTheFoldersAreStillLoadingKeepsTheLists) {
  pressWhileLoading(IDOK);
  const PreferenceValues values = saved();
  EXPECT_EQ(values.calendar.folders, std::vector<OutlookFolder>({identity("calendar")}));
  EXPECT_TRUE(values.email.folders.empty());
}

TEST_F(PrefsSheetTest, CancelWhileTheFoldersAreStillLoadingWritesNothing) {
  pressWhileLoading(IDCANCEL);
  EXPECT_EQ(keys_.store().text(), testing::MemoryKeyStore().text());
}

TEST_F(PrefsSheetTest, AboutOpensOverTheSheet) {
  std::u16string title;
  SheetDriver driver;
  driver.add("about", [](HWND sheet) {
    click(GetDlgItem(page(sheet), IDC_CAPTURE_ABOUT));
    return true;
  });
  driver.add("close it", [&title](HWND sheet) {
    HWND about = SheetDriver::ownedDialog(sheet);
    if (!about) return false;
    title = windowText(about);
    PostMessageW(about, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    return true;
  });
  driver.add("cancel", [](HWND sheet) {
    if (SheetDriver::ownedDialog(sheet)) return false;
    click(GetDlgItem(sheet, IDCANCEL));
    return true;
  });
  runSheet(driver);
  EXPECT_EQ(toUtf8(title), "About it");
}

TEST_F(PrefsSheetTest, CaptureNowStartsARunAndShowsItsProgressOverTheSheet) {
  testing::TempDir data;
  setDataFolder(data.path());
  Preferences::instance().calendar.folders = {};
  Preferences::instance().tasks.folders = {identity("tasks")};
  DataCapture* capture = DataCapture::instance();
  std::vector<bool> shown;  // the display's shutdown flag, per showing
  uint32_t folders = 0;
  capture->setProgressDisplay([&](bool shutdownMode) {
    shown.push_back(shutdownMode);
    // What the progress dialog does: stays until the run has ended.
    EXPECT_TRUE(capture->waitForCapture(std::chrono::seconds(20)));
    folders = capture->progress().totalFolders;
  });
  SheetDriver driver;
  driver.add("capture", [](HWND sheet) {
    click(GetDlgItem(page(sheet), IDC_CAPTURE_NOW));
    return true;
  });
  driver.add("cancel", [&shown](HWND sheet) {
    if (shown.empty()) return false;
    click(GetDlgItem(sheet, IDCANCEL));
    return true;
  });
  runSheet(driver);
  DataCapture::freeInstance();
  setDataFolder(u"");
  EXPECT_EQ(shown, std::vector<bool>({false}));
  EXPECT_EQ(folders, 1u) << "the run captured the one chosen folder";
}

TEST_F(PrefsSheetTest, HelpOpensTheLanguagesFileOwnedByTheSheet) {
  const std::u16string folder = getDllPath() + u"Help";
  const std::u16string file = folder + u"\\HELP_ENU.chm";
  const bool made = !fileExists(file);
  if (made) {
    CreateDirectoryW(wide(folder), nullptr);
    HANDLE h = CreateFileW(wide(file), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    CloseHandle(h);
  }
  std::vector<std::pair<HWND, std::u16string>> opened;
  PIMPrefsSheet::setHelpOpener([&opened](HWND owner, const std::u16string& path) {
    opened.push_back({owner, path});
  });
  HWND shown = nullptr;
  SheetDriver driver;
  driver.add("help", [&shown](HWND sheet) {
    shown = sheet;
    EXPECT_TRUE(IsWindowEnabled(GetDlgItem(sheet, IDHELP)));
    click(GetDlgItem(sheet, IDHELP));
    return true;
  });
  driver.add("cancel", [&opened](HWND sheet) {
    if (opened.empty()) return false;
    click(GetDlgItem(sheet, IDCANCEL));
    return true;
  });
  runSheet(driver);
  if (made) DeleteFileW(wide(file));
  ASSERT_EQ(opened.size(), 1u);
  EXPECT_EQ(opened[0].first, shown);
  EXPECT_EQ(toUtf8(opened[0].second), toUtf8(findHelpFile()));
  EXPECT_FALSE(opened[0].second.empty());
}

struct Layout {
  RECT ok, cancel, help, client;
  RECT screenOk, screenHelp;
  // On the screen: the Capture page's two buttons, and the Data page's
  // tree and its first item's text.
  RECT captureNow, about, dataTree, dataItem;
  bool mirrored;
  bool applyShown;
  std::vector<std::u16string> texts;  // OK, Cancel, Help, then the tabs
};

Layout layoutOf(HWND sheet) {
  Layout out = {};
  GetClientRect(sheet, &out.client);
  const std::pair<int, RECT*> buttons[] = {
      {IDOK, &out.ok}, {IDCANCEL, &out.cancel}, {IDHELP, &out.help}};
  for (const auto& [id, rect] : buttons) {
    GetWindowRect(GetDlgItem(sheet, id), rect);
    MapWindowPoints(HWND_DESKTOP, sheet, reinterpret_cast<POINT*>(rect), 2);
    out.texts.push_back(windowText(GetDlgItem(sheet, id)));
  }
  GetWindowRect(GetDlgItem(sheet, IDOK), &out.screenOk);
  GetWindowRect(GetDlgItem(sheet, IDHELP), &out.screenHelp);
  out.mirrored = (GetWindowLongW(sheet, GWL_EXSTYLE) & WS_EX_LAYOUTRTL) != 0;
  // The sheet's Apply button, hidden by the flags the sheet is made with.
  out.applyShown = IsWindowVisible(GetDlgItem(sheet, 0x3021)) != FALSE;
  HWND tabs = PropSheet_GetTabControl(sheet);
  for (int i = 0; i < TabCtrl_GetItemCount(tabs); ++i) {
    wchar_t buffer[64] = {};
    TCITEMW tab = {};
    tab.mask = TCIF_TEXT;
    tab.pszText = buffer;
    tab.cchTextMax = 64;
    TabCtrl_GetItem(tabs, i, &tab);
    out.texts.push_back(reinterpret_cast<const char16_t*>(buffer));
  }
  return out;
}

TEST_F(PrefsSheetTest, HelpAloneOnOneSideOkAndCancelOnTheOther) {
  for (const bool rightToLeft : {false, true}) {
    testing::useLanguageText(languageText(rightToLeft));
    Layout layout = {};
    SheetDriver driver;
    driver.add("measure", [&layout](HWND sheet) {
      layout = layoutOf(sheet);
      GetWindowRect(GetDlgItem(page(sheet), IDC_CAPTURE_NOW), &layout.captureNow);
      GetWindowRect(GetDlgItem(page(sheet), IDC_CAPTURE_ABOUT), &layout.about);
      PropSheet_SetCurSel(sheet, nullptr, 1);
      HWND tree = GetDlgItem(page(sheet), IDC_DATA_TREE);
      GetWindowRect(tree, &layout.dataTree);
      TreeView_GetItemRect(tree, TreeView_GetRoot(tree), &layout.dataItem, TRUE);
      MapWindowPoints(tree, HWND_DESKTOP, reinterpret_cast<POINT*>(&layout.dataItem), 2);
      click(GetDlgItem(sheet, IDCANCEL));
      return true;
    });
    runSheet(driver);
    SCOPED_TRACE(rightToLeft ? "right to left" : "left to right");
    EXPECT_EQ(layout.mirrored, rightToLeft);
    EXPECT_EQ(layout.texts, std::vector<std::u16string>({u"Okay", u"Drop", u"Assist",
                                                         u"Capture \u05D0", u"Data", u"Folders"}));
    // In the sheet's own coordinates (mirrored ones when mirrored): Help
    // as far from the leading edge as Cancel, now where Help was, is from
    // the trailing one; OK before Cancel; all on one line.
    EXPECT_EQ(layout.help.left - layout.client.left, layout.client.right - layout.cancel.right);
    EXPECT_LT(layout.help.right, layout.ok.left);
    EXPECT_LE(layout.ok.right, layout.cancel.left);
    EXPECT_EQ(layout.help.top, layout.cancel.top);
    EXPECT_EQ(layout.ok.top, layout.cancel.top);
    EXPECT_EQ(layout.help.right - layout.help.left, layout.cancel.right - layout.cancel.left);
    // On the screen Help is at the left for a left-to-right language and at
    // the right for the other.
    if (rightToLeft)
      EXPECT_GT(layout.screenHelp.left, layout.screenOk.right);
    else
      EXPECT_LT(layout.screenHelp.right, layout.screenOk.left);
    EXPECT_FALSE(layout.applyShown);
    // The pages mirror with the sheet: the first one was there when the
    // sheet was mirrored, the others are made inside the mirrored sheet and
    // their trees grow from the leading side.
    EXPECT_EQ(layout.captureNow.left < layout.about.left, !rightToLeft);
    const LONG fromLeft = layout.dataItem.left - layout.dataTree.left;
    const LONG fromRight = layout.dataTree.right - layout.dataItem.right;
    EXPECT_EQ(fromLeft < fromRight, !rightToLeft) << fromLeft << " " << fromRight;
  }
}

}  // namespace
}  // namespace PIM
