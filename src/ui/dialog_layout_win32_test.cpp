// Every dialog on screen against its template: each control where its
// dialog units put it (MapDialogRect with the dialog's own font), in every
// shipped language (and with none), on the mirror side for right-to-left
// ones, and no labelled control ever blank. With
// FERRANT_SCREENSHOTS set to a folder, pictures of each are saved there as
// well (scripts/screenshots.sh makes the documentation's from them).
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "addin/outlook_app.h"
#include "core/resource_loader.h"
#include "core/utils.h"
#include "mapi/mapi_ptr.h"
#include "prefs/preferences.h"
#include "store/fixture.h"
#include "store/profile.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"
#include "ui/about_box_win32.h"
#include "ui/capture_progress_win32.h"
#include "ui/dialog_template.h"
#include "ui/dialog_testing_win32.h"
#include "ui/dialog_win32.h"
#include "ui/page_controls.h"
#include "ui/prefs_sheet_win32.h"
#include "ui/ui_resources.h"
#include "ui/window_picture_win32.h"

namespace PIM {
namespace {

RECT screenClientRect(HWND window) {
  RECT client = {};
  GetClientRect(window, &client);
  POINT a = {client.left, client.top};
  POINT b = {client.right, client.bottom};
  ClientToScreen(window, &a);
  ClientToScreen(window, &b);
  // A mirrored window's client origin is its right edge.
  return RECT{std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x), std::max(a.y, b.y)};
}

DialogTemplate loadTemplate(UINT templateId) {
  DialogTemplate dialog;
  std::string error;
  EXPECT_TRUE(testing::loadDialogTemplate(templateId, dialog, error)) << error;
  return dialog;
}

// The controls of `templateId` in `window` where the template puts them,
// mirrored when `mirrored`; the client area as large as the template.
void expectLayout(HWND window, UINT templateId, bool mirrored, bool wholeClient) {
  const DialogTemplate dialog = loadTemplate(templateId);
  EXPECT_EQ(dialog.typeface, u"Tahoma");
  EXPECT_EQ(dialog.pointSize, 8);
  const RECT client = screenClientRect(window);
  if (wholeClient) {
    RECT size = {0, 0, dialog.cx, dialog.cy};
    MapDialogRect(window, &size);
    EXPECT_EQ(client.right - client.left, size.right);
    EXPECT_EQ(client.bottom - client.top, size.bottom);
  }
  ASSERT_FALSE(dialog.controls.empty());
  for (const DialogTemplate::Control& c : dialog.controls) {
    SCOPED_TRACE("control " + std::to_string(c.id));
    HWND control = GetDlgItem(window, static_cast<int>(c.id));
    ASSERT_TRUE(control != nullptr);
    // The dialog manager converts the place and the size each on its own,
    // as MapDialogRect converts each edge.
    RECT place = {c.x, c.y, 0, 0};
    RECT size = {0, 0, c.cx, c.cy};
    MapDialogRect(window, &place);
    MapDialogRect(window, &size);
    const RECT expected = {place.left, place.top, place.left + size.right, place.top + size.bottom};
    RECT actual = {};
    GetWindowRect(control, &actual);
    const LONG fromStart = mirrored ? client.right - actual.right : actual.left - client.left;
    EXPECT_EQ(fromStart, expected.left);
    EXPECT_EQ(actual.top - client.top, expected.top);
    EXPECT_EQ(actual.right - actual.left, expected.right - expected.left);
    EXPECT_EQ(actual.bottom - actual.top, expected.bottom - expected.top);
    EXPECT_EQ((GetWindowLongPtrW(control, GWL_EXSTYLE) & WS_EX_LAYOUTRTL) != 0, mirrored);
    // Whatever the language file holds, or lacks, no labelled control is
    // left blank.
    if (!c.text.empty() && IsWindowVisible(control)) {
      EXPECT_GT(GetWindowTextLengthW(control), 0);
    }
  }
}

// Runs `show`, which shows a modal dialog on this thread; once the dialog
// is up `probe` looks at it, then the dialog is cancelled.
void whileShown(const std::function<void()>& show, const std::function<void(HWND)>& probe) {
  testing::DialogDriver driver;
  driver.add("look", [&](HWND dialog) {
    probe(dialog);
    PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
    return true;
  });
  driver.run(show);
  EXPECT_TRUE(driver.done()) << "stuck at: " << driver.stuckAt();
}

class DialogLayoutTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!testing::canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
    // The bundled sample mailbox, so that the Folders page shows a real
    // store's folders.
    profile_ = store::loadFixtureText(testing::readFileBytes(fromUtf8(FERRANT_SAMPLE_MAILBOX)),
                                      "sample-mailbox.json");
    ASSERT_TRUE(profile_);
    ASSERT_EQ(profile_->logon(session_.put()), S_OK);
    OutlookApp::instance()->setMapiSession(session_.get());
    // As at a first start: the default folders chosen.
    Preferences::instance().resetToDefaults();
    Preferences::instance().load();
    language_ = GetParam();
    const std::u16string file =
        getDllPath() + u"Language\\strings." + std::u16string(language_.begin(), language_.end());
    ResourceLoader::freeInstance();
    // "none": no language file at all.
    if (language_ != "none") {
      ResourceLoader::instance()->readResourceString(file);
      ASSERT_FALSE(ResourceLoader::instance()->strings().empty()) << "no strings." << language_;
    }
    mirrored_ = ResourceLoader::instance()->isRtl();
  }
  void TearDown() override {
    ResourceLoader::freeInstance();
    OutlookApp::instance()->setMapiSession(nullptr);
    session_.reset();
  }

  void picture(HWND window, const std::string& name) {
    const char* folder = std::getenv("FERRANT_SCREENSHOTS");
    if (!folder || !*folder || language_ == "none") return;
    const std::string path = std::string(folder) + "\\" + name + "-" + language_ + ".bmp";
    EXPECT_TRUE(testing::saveWindowPicture(window, std::wstring(path.begin(), path.end()))) << path;
  }

  testing::MemoryKeyStoreEnv keys_;
  std::shared_ptr<store::Profile> profile_;
  ComPtr<IMAPISession> session_;
  std::string language_;
  bool mirrored_ = false;
};

TEST_P(DialogLayoutTest, AboutBox) {
  whileShown([] { AboutBox().DoModal(); },
             [&](HWND dialog) {
               expectLayout(dialog, IDD_ABOUTBOX, mirrored_, true);
               picture(dialog, "about");
             });
}

// With no run in progress the dialog closes on its first tick; it is
// looked at before that.
TEST_P(DialogLayoutTest, CaptureProgress) {
  whileShown([] { CaptureProgress(false).DoModal(); },
             [&](HWND dialog) {
               expectLayout(dialog, IDD_CAPTURE_PROGRESS, mirrored_, true);
               picture(dialog, "progress");
             });
}

// The sheet's three pages in turn, each in the sheet as the user sees it.
TEST_P(DialogLayoutTest, PreferencesPages) {
  whileShown(
      [] { ShowPreferences(); },
      [&](HWND sheet) {
        const struct {
          UINT templateId;
          const char* name;
        } pages[] = {{IDD_CAPTURE_PAGE, "capture-page"},
                     {IDD_DATA_PAGE, "data-page"},
                     {IDD_FOLDER_PAGE, "folders-page"}};
        for (int i = 0; i < 3; ++i) {
          SCOPED_TRACE(pages[i].name);
          SendMessageW(sheet, PSM_SETCURSEL, i, 0);
          HWND page = reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
          ASSERT_TRUE(page != nullptr);
          if (pages[i].templateId == IDD_FOLDER_PAGE) {
            // Past the "loading" item: the store and its folders.
            HWND tree = GetDlgItem(page, IDC_FOLDERS_TREE);
            EXPECT_TRUE(
                testing::pumpUntil([tree] { return SendMessageW(tree, TVM_GETCOUNT, 0, 0) > 1; }));
          }
          expectLayout(page, pages[i].templateId, mirrored_, false);
          picture(sheet, pages[i].name);
        }
      });
}

INSTANTIATE_TEST_SUITE_P(Languages, DialogLayoutTest,
                         ::testing::Values("ENU", "DEU", "HEB", "none"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace PIM
