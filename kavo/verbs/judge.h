// A run is judged: read from its folder, held against the rules, told on the screen and in the folder. What `kavo test`
// does at its end and `kavo audit` at any time.
#pragma once

#include "kavo/basics/folder.h"
#include "kavo/basics/status.h"

namespace kavo::companion {

struct Telling {
    bool json = false;   // on standard output instead of the screenful
    bool all = false;    // every rule with findings, however long
    bool quiet = false;  // one line
    bool write = true;   // verdict.* into the folder
};

Status judge(const RunFolder& folder, const Telling& telling);

}  // namespace kavo::companion
