#include "kavo/bench/place.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "kavo/basics/problem.h"

namespace kavo::companion {

namespace {

namespace fs = std::filesystem;

constexpr unsigned long least_room_bytes = 16'384;

void touch(const fs::path& file) {
    errno = 0;
    std::ofstream out(file, std::ios::app);
    if (out) return;
    throw Problem(Status::bench, "cannot write " + file.string() + ": " + std::strerror(errno) +
                                     ". Choose another folder with --dir.");
}

}  // namespace

fs::path temporary_name() {
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device random;
    std::string name = "kavo-";
    for (int i = 0; i < 16; ++i) name += letters[random() % letters.size()];
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    if (error) throw Problem(Status::bench, "there is no folder for temporary files: set TMPDIR, or give --dir.");
    return folder / name;
}

RunFolder prepare_folder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error && !fs::is_directory(path)) {
        throw Problem(Status::bench, "cannot make the folder " + path.string() + ": " + error.message() +
                                         ". Choose another with --dir.");
    }
    const bool empty = fs::is_empty(path, error);
    if (error) {
        throw Problem(Status::bench, "cannot read the folder " + path.string() + ": " + error.message() +
                                         ". Choose another with --dir.");
    }
    if (!empty) {
        throw Problem(Status::usage, path.string() +
                                         " is not empty, and a run of its own needs an empty folder: name "
                                         "one that is not there, or remove what is in it.");
    }
    const RunFolder folder{fs::canonical(path)};
    touch(folder.order_truth());
    touch(folder.book_truth());
    return folder;
}

fs::path find_venue(const fs::path& wished) {
    const char* named = std::getenv("KAVO_ME");
    fs::path venue = wished;
    if (venue.empty() && named != nullptr) venue = named;
    std::error_code error;
    if (venue.empty()) venue = fs::read_symlink("/proc/self/exe", error).parent_path() / "kavo_me";
    if (!fs::is_directory(venue, error) && access(venue.c_str(), X_OK) == 0) return fs::absolute(venue);
    throw Problem(Status::usage, "there is no simulator at " + venue.string() +
                                     ": build kavo_me, or name it with --venue or the variable KAVO_ME.");
}

std::string cut_short(const RunFolder& folder) {
    for (const fs::path& file : {folder.order_truth(), folder.book_truth()}) {
        std::ifstream in(file, std::ios::binary);
        if (!in) return file.string() + " has gone";
        if (in.seekg(-1, std::ios::end) && in.get() != '\n') return file.string() + " is cut short";
    }
    return {};
}

bool disk_is_full(const RunFolder& folder) {
    struct statvfs disk {};
    if (statvfs(folder.path.c_str(), &disk) != 0 || disk.f_blocks == 0) return false;  // one that does not count
    return (geteuid() == 0 ? disk.f_bfree : disk.f_bavail) * disk.f_frsize < least_room_bytes;
}

}  // namespace kavo::companion
