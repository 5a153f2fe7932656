// `./dev` in a checkout of its own, among programs that only say how they were called: nothing is built here.
#include <filesystem>
#include <fstream>

#include "system/live_venue.h"

namespace kavo::test {
namespace {

namespace fs = std::filesystem;

// A checkout, and a user in it who is not root. Nothing is on the path but what ./dev needs anywhere; there is no sudo
// unless the test puts it there.
class Checkout {
public:
    Checkout() {
        make_folder("bin");
        for (const char* name : {"bash", "cat", "dirname", "env", "mkdir", "readlink"}) {
            fs::create_symlink("/usr/bin/" + std::string(name), path(std::string("bin/") + name));
        }
        fs::copy_file(KAVO_SOURCE_DIR "/dev", path("dev"));
        write("bin/cmake", "echo \"cmake $*\"");
        write("bin/dpkg-query", "echo installed");
        allow(fs::perms::all);
    }
    ~Checkout() { allow(fs::perms::all); }
    Checkout(const Checkout&) = delete;
    Checkout& operator=(const Checkout&) = delete;

    std::string path(const std::string& name) const { return folder_.path(name); }
    void make_folder(const std::string& name) { fs::create_directories(path(name)); }
    void write(const std::string& name, const std::string& script) {
        std::ofstream(path(name)) << "#!/bin/bash\n" << script << "\n";
        fs::permissions(path(name), fs::perms(0755));
    }
    // Nothing can be added to it any more, or taken away.
    void seal() { allow(fs::perms(0555)); }

    // Starts ./dev with these arguments, and waits for its end.
    int dev(const std::vector<std::string>& arguments) {
        const std::string script =
            "if [ $(id -u) = 0 ]; then user='setpriv --reuid 65534 --regid 65534 --clear-groups'; fi; "
            "here=$1; shift; exec $user env PATH=\"$here/bin\" bash \"$here/dev\" \"$@\" >&2";
        std::vector<std::string> all = {"-c", script, "sh", path(".")};
        all.insert(all.end(), arguments.begin(), arguments.end());
        Process process("/bin/sh", all);
        const int status = process.wait();
        said = process.said();
        return status;
    }
    std::string said;  // by ./dev and whatever it has started

private:
    void allow(fs::perms permissions) {
        fs::permissions(path("."), permissions);
        for (const auto& entry : fs::recursive_directory_iterator(path("."))) {
            if (entry.is_directory()) fs::permissions(entry, permissions);
        }
    }

    TemporaryFolder folder_;
};

constexpr const char* verbs[] = {"run",   "demo", "kavo",     "test",    "check",    "lint", "compilers",
                                 "bench", "fuzz", "coverage", "mutants", "simulate", "soak"};

TEST(Dev, ListsItsVerbs) {
    Checkout checkout;
    EXPECT_EQ(checkout.dev({}), 0);
    EXPECT_TRUE(
        checkout.said.starts_with("usage: ./dev <verb> [arguments]\n"
                                  "  run [flags]      build the simulator alone and start it with these "
                                  "flags\n"))
        << checkout.said;
    for (const std::string verb : verbs) EXPECT_NE(checkout.said.find("\n  " + verb), std::string::npos) << verb;
    const std::string usage = checkout.said;
    for (const char* word : {"help", "--help", "-h"}) {
        EXPECT_EQ(checkout.dev({word}), 0);
        EXPECT_EQ(checkout.said, usage);
    }
}

TEST(Dev, TellsOfEachVerbWhatItDoesAndHowLongItTakes) {
    Checkout checkout;
    for (const std::string verb : verbs) {
        EXPECT_EQ(checkout.dev({verb, "--help"}), 0);
        EXPECT_TRUE(checkout.said.starts_with("usage: ./dev " + verb)) << checkout.said;
        EXPECT_NE(checkout.said.find(" about "), std::string::npos) << checkout.said;
        const std::string help = checkout.said;
        EXPECT_EQ(checkout.dev({"help", verb}), 0);
        EXPECT_EQ(checkout.said, help);
    }
}

TEST(Dev, NamesAVerbThatItDoesNotKnow) {
    Checkout checkout;
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"start"}, {"help", "start"}}) {
        EXPECT_EQ(checkout.dev(arguments), 2);
        EXPECT_EQ(
            checkout.said,
            "dev: no verb 'start' among: run demo kavo test check lint compilers bench fuzz coverage mutants simulate "
            "soak help\n");
    }
}

TEST(Dev, BuildsTheSimulatorAloneAndStartsIt) {
    Checkout checkout;
    checkout.make_folder("build/run");
    checkout.write("build/run/kavo_me", "echo \"kavo_me $*\"");
    checkout.write("bin/dpkg-query", "[[ ${!#} == libgtest-dev ]] || echo installed");
    fs::permissions(checkout.path("build/run"), fs::perms::all);
    EXPECT_EQ(checkout.dev({"run", "--quiet"}), 0);
    EXPECT_EQ(checkout.said,
              "dev: configuring build/run\n"
              "dev: building build/run\n"
              "cmake --build --preset run --target kavo_me\n"
              "kavo_me --quiet\n");
}

TEST(Dev, AsksForPackagesByNameWhereItMayNotInstallThem) {
    Checkout checkout;
    checkout.write("bin/dpkg-query", "[[ ${!#} == cmake ]] && echo installed");
    const std::string request = "ask an administrator for: apt-get install g++ ninja-build\n";
    EXPECT_EQ(checkout.dev({"run"}), 1);
    EXPECT_EQ(checkout.said, "dev: packages are missing that only root may install; " + request);

    checkout.write("bin/sudo", "echo \"sudo $*\"; exit 1");
    EXPECT_EQ(checkout.dev({"run"}), 1);
    EXPECT_EQ(checkout.said,
              "dev: installing g++ ninja-build\n"
              "sudo env DEBIAN_FRONTEND=noninteractive apt-get -qq update\n"
              "dev: the packages that are missing could not be installed; " +
                  request);
}

TEST(Dev, StartsWhatHasBeenBuiltWhereNothingMayBeWritten) {
    Checkout checkout;
    checkout.make_folder("build/run/tools");
    checkout.make_folder("build/run/examples/trading_client");
    for (const std::string program : {"kavo_me", "kavo", "tools/demo", "examples/trading_client/trading_client"}) {
        checkout.write("build/run/" + program, "echo \"" + program + " $*\"");
    }
    checkout.write("bin/dpkg-query", "exit 1");  // it needs nothing to build with
    checkout.seal();
    EXPECT_EQ(checkout.dev({"run", "--quiet"}), 0);
    EXPECT_EQ(checkout.said, "kavo_me --quiet\n");
    EXPECT_EQ(checkout.dev({"demo", "--seed", "7"}), 0);
    EXPECT_EQ(checkout.said, "tools/demo --seed 7\n");
    EXPECT_EQ(checkout.dev({"kavo", "feed", "--book"}), 0);
    EXPECT_EQ(checkout.said, "kavo feed --book\n");
}

TEST(Dev, SaysWhereItMayNotBuild) {
    Checkout checkout;
    checkout.seal();
    EXPECT_EQ(checkout.dev({"run"}), 1);
    EXPECT_EQ(checkout.said,
              "dev: " + fs::canonical(checkout.path(".")).string() + "/build/run may not be written to\n");
}

}  // namespace
}  // namespace kavo::test
