#include "app/store_session.h"

#include "app/capture_fingerprints.h"

#include <exception>

#include "addin/outlook_app.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "store/fixture.h"
#include "store/profile.h"
#ifdef FERRANT_PST
#include "store/pst/pst_store.h"
#endif

#ifndef FERRANT_SOURCE_SAMPLE
#define FERRANT_SOURCE_SAMPLE ""
#endif

namespace PIM {

std::u16string StoreSession::defaultStorePath() {
  // Installed beside the program ("samples/" next to "Language/"), else the
  // source tree's copy for a program run from its build folder.
  const std::u16string installed =
      getDllPath() + u"samples" + kPathSeparator + u"sample-mailbox.json";
  if (fileExists(installed)) return installed;
  const std::u16string source = fromUtf8(FERRANT_SOURCE_SAMPLE);
  if (!source.empty() && fileExists(source)) return source;
  return {};
}

StoreSession::~StoreSession() {
  if (session_) OutlookApp::instance()->setMapiSession(nullptr);
}

bool StoreSession::open(const std::u16string& path, std::string& error) {
  path_ = path;
  if (!fileExists(path)) {
    error = "no store file at " + toUtf8(path);
    return false;
  }
  stamped_ = fileStamp(path, fileSize_, fileTime_);
  try {
#ifdef FERRANT_PST
    // Outlook data files are told by their signature, whatever their name.
    if (store::isPstFile(path)) {
      loader_ = [](const std::u16string& p) { return store::loadPstFile(p); };
      profile_ = loader_(path);
    } else {
      profile_ = store::loadFixtureFile(path);
    }
#else
    profile_ = store::loadFixtureFile(path);
#endif
  } catch (const std::exception& e) {
    error = e.what();
    return false;
  }
  const HRESULT hr = profile_->logon(session_.put());
  if (FAILED(hr)) {
    error = "could not log on to " + toUtf8(path) + " (" + hrText(hr) + ")";
    return false;
  }
  OutlookApp::instance()->setMapiSession(session_.get());
  return true;
}

}  // namespace PIM
