// The guard over the layers: it lets this tree pass, and no include that runs against the rule.
#include <filesystem>
#include <fstream>

#include "system/live_venue.h"

namespace kavo::test {
namespace {

namespace fs = std::filesystem;

// What the guard says of a tree, when it lets it pass and when it does not.
struct Verdict {
    int status;
    std::string said;
};
Verdict verdict_on(const std::string& tree) {
    Process guard("/bin/sh", {"-c", "exec \"$0\" >&2", tree + "/tools/layers"});
    const int status = guard.wait();
    return {status, guard.said()};
}

// A copy of all that the guard looks at.
class Copy {
public:
    Copy() {
        for (const char* part : {"src", "client", "memory", "model", "kavo"}) {
            fs::copy(std::string(KAVO_SOURCE_DIR "/") + part, folder_.path(part), fs::copy_options::recursive);
        }
        fs::create_directory(folder_.path("tools"));
        fs::copy_file(KAVO_SOURCE_DIR "/tools/layers", folder_.path("tools/layers"));
    }
    // What the guard says when this header stands in this file as well.
    Verdict with(const std::string& file, const std::string& header) const {
        const std::string before = content_of(folder_.path(file));
        std::ofstream(folder_.path(file)) << "#include \"" << header << "\"\n" << before;
        Verdict verdict = verdict_on(folder_.path("."));
        std::ofstream(folder_.path(file)) << before;
        return verdict;
    }

private:
    TemporaryFolder folder_;
};

TEST(Layers, HoldInThisTree) {
    const Verdict verdict = verdict_on(KAVO_SOURCE_DIR);
    EXPECT_EQ(verdict.status, 0);
    EXPECT_EQ(verdict.said, "");
}

TEST(Layers, LetAFileIncludeItsOwnLayerAndThoseBelow) {
    const Copy copy;
    for (const auto& [file, header] : {std::pair{"src/app/venue.cpp", "session/order_entry.h"},
                                       {"src/session/login.cpp", "engine/engine.h"},
                                       {"src/engine/books.cpp", "feed/dom_feed.h"},
                                       {"src/feed/refresh.cpp", "common/clock.h"},
                                       {"src/engine/engine.cpp", "app/bench.h"},
                                       {"src/feed/dom_feed.cpp", "session/esesm.h"},
                                       {"client/session.cpp", "session/esesm.h"},
                                       {"memory/memory_venue.cpp", "app/venue.h"},
                                       {"model/feed.cpp", "model/packets.h"}}) {
        EXPECT_EQ(copy.with(file, header).status, 0) << file << " " << header;
    }
}

TEST(Layers, ForbidEveryIncludeThatRunsTheOtherWay) {
    const Copy copy;
    for (const auto& [file, header] : {std::pair{"src/session/login.cpp", "app/venue.h"},
                                       {"src/engine/engine.cpp", "session/order_entry.h"},
                                       {"src/feed/dom_feed.cpp", "engine/engine.h"},
                                       {"src/common/farewells.cpp", "feed/dom_feed.h"},
                                       {"src/common/farewells.cpp", "app/bench.h"},        // a leaf
                                       {"src/app/bench.cpp", "feed/dom_feed.h"},           // and from one
                                       {"src/session/esesm.cpp", "common/socket.h"},       // no codec
                                       {"src/engine/meo_requests.cpp", "engine/book.h"},   // nor this
                                       {"src/app/venue.cpp", "client/session.h"},          // a client
                                       {"src/app/venue.cpp", "model/feed.h"},              // a judge
                                       {"src/app/venue.cpp", "../tests/support/venue.h"},  // a way around
                                       {"client/session.cpp", "engine/engine.h"},
                                       {"client/session.cpp", "memory/memory_venue.h"},
                                       {"memory/memory_venue.cpp", "model/feed.h"},
                                       {"model/feed.cpp", "common/bytes.h"},
                                       {"model/feed.cpp", "client/session.h"}}) {
        const Verdict verdict = copy.with(file, header);
        EXPECT_NE(verdict.status, 0) << file << " " << header;
        EXPECT_EQ(verdict.said, std::string(file) + ":1: #include \"" + header + "\"\n");
    }
}

}  // namespace
}  // namespace kavo::test
