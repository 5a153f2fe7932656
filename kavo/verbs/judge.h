// A run is judged: read from its folder, held against the rules, told on the screen and in the folder. What `kavo test`
// does at its end and `kavo audit` at any time.
#pragma once

#include <filesystem>

#include "kavo/basics/folder.h"
#include "kavo/basics/status.h"

namespace kavo::companion {

struct Telling {
    bool json = false;                  // on standard output instead of the screenful
    bool all = false;                   // every rule with findings, however long
    bool quiet = false;                 // one line
    bool write = true;                  // verdict.* into the folder
    std::filesystem::path html, junit;  // copies of the page and of the JUnit XML; empty: none
};

// Throws Problem, status usage, when a file that is wished for cannot be written: said before a test is run, and not
// when it has ended. What is in the file is kept.
void check_files(const Telling& telling);

Status judge(const RunFolder& folder, const Telling& telling);

}  // namespace kavo::companion
