// The store's MAPI objects: session, message store, folder, message,
// attachment, mail user and property stream. Each is a view of a Profile's
// data and takes the profile's lock for every call; each call first asks
// the fault injector (fault_injector.h) under its interface's name.
#pragma once

#include <memory>

#include "mapi/mapi.h"
#include "store/profile.h"

namespace PIM::store {

// A new session on the profile; one reference for the caller.
IMAPISession* newSession(std::shared_ptr<Profile> profile);

}  // namespace PIM::store
