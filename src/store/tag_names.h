// Names the fixture format accepts: property tags ("PR_SUBJECT_W"), types
// ("PT_UNICODE"), error values ("MAPI_E_NOT_FOUND") and property sets
// ("PSETID_Appointment"). The tags are those of our MAPI header.
#pragma once

#include <string>

#include "mapi/mapi.h"

namespace PIM::store {

bool tagByName(const std::string& name, ULONG& tag);
bool typeByName(const std::string& name, ULONG& type);
const char* typeName(ULONG type);  // null when unknown
bool errorByName(const std::string& name, SCODE& code);
bool propSetByName(const std::string& name, GUID& set);

}  // namespace PIM::store
