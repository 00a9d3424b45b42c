// Stand-ins for the viewer's input handlers: each call is written down as one
// line of `inputLog`, e.g. "key 65 down repeat=0 shift=1".
#pragma once

#include <string>

namespace bwtest {
extern std::string inputLog;
}
