// What the page on testing gives to be typed into a shell does what it says, with the real program.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "page.h"
#include "support/process.h"

namespace kavo::docs {
namespace {

using test::Process;

constexpr const char* testing_md = "testing.md";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The recipes that go together, and the one that stands alone.
bool isolates(const std::string& recipe) {
    return recipe.starts_with("unshare ");
}
std::vector<std::string> recipes() {
    std::vector<std::string> all = blocks_on(testing_md, "bash");
    std::erase_if(all, isolates);
    return all;
}
std::string isolating_recipe() {
    std::string recipe;
    for (const std::string& block : blocks_on(testing_md, "bash")) {
        if (isolates(block)) recipe += block;
    }
    return recipe;
}

// A folder with the simulator where the page has it.
class Workplace {
public:
    Workplace() {
        std::filesystem::create_directories(folder_.path("build/run"));
        std::filesystem::create_symlink(KAVO_ME_PATH, folder_.path("build/run/kavo_me"));
    }

    std::string content(const std::string& file) const { return test::content_of(folder_.path(file)); }

    void write_script(const std::string& name, const std::string& text) const {
        std::ofstream(folder_.path(name)) << "#!/bin/bash\nset -euo pipefail\n" << text;
        std::filesystem::permissions(folder_.path(name), std::filesystem::perms::owner_all);
    }
    // Runs it there. What it says goes to the file "said".
    Process start(const std::string& name) const {
        return Process("/bin/bash", {"-c", "cd " + folder_.path("") + " && exec ./" + name + " > said"});
    }

private:
    test::TemporaryFolder folder_;
};

TEST(Recipes, StartSteerAndEndTheSimulator) {
    std::string script;
    for (const std::string& recipe : recipes()) script += recipe;
    const std::array<test::ReservedPort, 4> ports;
    for (std::size_t i = 0; i < ports.size(); ++i) {
        script = replaced(script, std::to_string(31'001 + i), std::to_string(ports[i].number()));
    }
    const Workplace workplace;
    workplace.write_script("recipes", script);
    Process shell = workplace.start("recipes");
    ASSERT_EQ(shell.wait(), 0) << shell.said() << workplace.content("venue.log");

    const std::string said = workplace.content("said");
    EXPECT_TRUE(said.starts_with("ok mark begin\nok drop_every 0\n")) << said;
    EXPECT_TRUE(said.ends_with("ok pause\n[kavo_me] stopped\n")) << said;
    EXPECT_TRUE(workplace.content("stats.txt").starts_with("ok orders=0 ")) << workplace.content("stats.txt");
    EXPECT_NE(workplace.content("books.jsonl").find("{\"mark\":\"begin\",\"seq\":"), std::string::npos);
    EXPECT_NE(workplace.content("venue.log").find("bench: scenario 'rough' armed ("), std::string::npos);
}

TEST(Recipes, DoNotWaitForASimulatorThatHasEnded) {
    const Workplace workplace;
    workplace.write_script("recipe", replaced(recipes().at(0), "--seed 7", "--session 0"));
    Process shell = workplace.start("recipe");
    EXPECT_EQ(shell.wait(), 1);
    EXPECT_EQ(shell.said(), "--session must be 1..255 (MACH §2.2.1)\n");
}

// Two at once, each with every port and the group as they are by default.
TEST(Recipes, GiveATestAMachineOfItsOwn) {
    Process attempt("/bin/bash", {"-c", "unshare -Urn ip link set lo up"});
    if (attempt.wait() != 0) GTEST_SKIP() << "no namespaces here: " << attempt.said();
    const std::array<Workplace, 2> workplaces;
    for (const Workplace& workplace : workplaces) {
        workplace.write_script("my_test", R"(
build/run/kavo_me 2> venue.log &
until grep -qs 'MEO/ESesM' venue.log; do kill -0 $!; sleep 0.05; done
exec 3<> /dev/tcp/127.0.0.1/28700
until grep -q 'client connected' venue.log; do kill -0 $!; sleep 0.05; done
kill $!
wait $!
)");
        workplace.write_script("recipe", isolating_recipe());
    }
    Process one = workplaces[0].start("recipe");
    Process other = workplaces[1].start("recipe");
    EXPECT_EQ(one.wait(), 0) << one.said() << workplaces[0].content("venue.log");
    EXPECT_EQ(other.wait(), 0) << other.said() << workplaces[1].content("venue.log");
}

}  // namespace
}  // namespace kavo::docs
