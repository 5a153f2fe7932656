// Where things are: the folder of a run, and the simulator's program.
#pragma once

#include <filesystem>

#include "kavo/basics/folder.h"

namespace kavo::companion {

// A name in the system's folder for temporary files that nobody has.
std::filesystem::path temporary_name();

// Makes the folder if it is not there, with the two truth files in it, empty: the simulator does not say when it cannot
// open them. Throws Problem: status usage when something is in it, status bench when it cannot be written.
RunFolder prepare_folder(const std::filesystem::path& path);

// The simulator: what was wished, else what KAVO_ME names, else kavo_me beside kavo. Throws Problem when it is none
// that could be started.
std::filesystem::path find_venue(const std::filesystem::path& wished);

// What is wrong with what is in the folder after a good end, in words; empty when nothing is. A full disk cuts truth
// files short, and nobody else tells.
std::string cut_short(const RunFolder& folder);
// True when the disk on which the folder lies has no room left.
bool disk_is_full(const RunFolder& folder);

}  // namespace kavo::companion
