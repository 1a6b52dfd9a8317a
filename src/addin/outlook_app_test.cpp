#include "addin/outlook_app.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "store/store_test_util.h"
#include "testing/test_support.h"

namespace {

using PIM::testing::LogCapture;

// An IUnknown that counts its references and notes when the count reaches 0.
struct CountingUnknown : public IUnknown {
  int refs = 1;
  bool freed = false;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** out) override {
    if (out) *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++refs); }
  ULONG STDMETHODCALLTYPE Release() override {
    if (--refs == 0) freed = true;
    return static_cast<ULONG>(refs);
  }
};

// The references a COM object holds, seen through AddRef/Release.
int refsOf(IUnknown* object) {
  object->AddRef();
  return static_cast<int>(object->Release());
}

class OutlookAppTest : public PIM::store::testing::StoreTest {
 protected:
  void TearDown() override {
    OutlookApp::instance()->setOutlookApp(nullptr);
    OutlookApp::instance()->setMapiSession(nullptr);
    StoreTest::TearDown();
  }
};

TEST_F(OutlookAppTest, GettersWithNothingHeldLogTheAssertionAndAnswerNull) {
  OutlookApp* app = OutlookApp::instance();
  ASSERT_NE(app, nullptr);
  EXPECT_EQ(app, OutlookApp::instance());
  LogCapture log;
  EXPECT_EQ(app->getMapiSession(), nullptr);
  EXPECT_EQ(app->getOutlookApp(), nullptr);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Assertion failed", "Assertion failed"}));
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(" : OutlookApp::getMapiSession() > ERR> "), std::string::npos)
      << lines[0];
  EXPECT_NE(lines[1].find(" : OutlookApp::getOutlookApp() > ERR> "), std::string::npos) << lines[1];
}

TEST_F(OutlookAppTest, TheSessionIsHeldOnceAndHandedOutWithoutAReference) {
  OutlookApp* app = OutlookApp::instance();
  const int before = refsOf(session_.get());
  app->setMapiSession(session_.get());
  EXPECT_EQ(refsOf(session_.get()), before + 1);
  LogCapture log;
  EXPECT_EQ(app->getMapiSession(), session_.get());
  EXPECT_EQ(refsOf(session_.get()), before + 1) << "the getter adds no reference";
  app->setMapiSession(session_.get());
  EXPECT_EQ(refsOf(session_.get()), before + 1) << "setting the same session keeps one reference";
  EXPECT_TRUE(log.messages().empty());

  // A second logon replaces the first session, which is released.
  PIM::ComPtr<IMAPISession> other;
  ASSERT_EQ(profile_->logon(other.put()), S_OK);
  app->setMapiSession(other.get());
  EXPECT_EQ(refsOf(session_.get()), before);
  EXPECT_EQ(app->getMapiSession(), other.get());
  app->setMapiSession(nullptr);
  EXPECT_EQ(refsOf(other.get()), 1);
}

TEST_F(OutlookAppTest, SettingTheApplicationItHoldsAloneNeverFreesIt) {
  OutlookApp* app = OutlookApp::instance();
  CountingUnknown application;
  app->setOutlookApp(&application);
  EXPECT_EQ(application.refs, 2);
  application.Release();  // the holder's reference is now the only one
  app->setOutlookApp(&application);
  EXPECT_FALSE(application.freed) << "the old reference went before the new one was taken";
  EXPECT_EQ(application.refs, 1);
  EXPECT_EQ(app->getOutlookApp(), &application);
  app->setOutlookApp(nullptr);
  EXPECT_TRUE(application.freed);
  EXPECT_EQ(application.refs, 0);
}

}  // namespace
