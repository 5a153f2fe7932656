#include "audit/witness.h"

#include "audit/finding.h"
#include "model/wire.h"

namespace kavo::simulation {

const Entry& Witness::take(What what) {
    feed_.take_overflows();
    const Entry& entry = tape_.next();
    if (entry.what == what) return entry;
    throw Finding("expected " + in_words(entry_of(what, 0)) + "\n  but found " + in_words(entry));
}

void Witness::expect_line(What what, const std::string& line) {
    feed_.take_overflows();
    const Entry& entry = tape_.next();
    if (entry.what == what && entry.text == line) return;
    throw Finding("expected " + in_words(line_of(what, line)) + "\n  but found " + in_words(entry));
}

const Entry& Witness::expect_bytes(What what, int fd, const Bytes& bytes) {
    feed_.take_overflows();
    const Entry& entry = tape_.next();
    if (entry.what == what && entry.fd == fd && entry.bytes == bytes) return entry;
    const std::string expected = in_words(entry_of(what, fd, bytes));
    const bool alike = expected == in_words(entry);  // in all that words say, so the bytes must tell
    throw Finding("expected " + expected + "\n  but found " + in_words(entry) +
                  (alike ? "\n  " + model::hex(bytes) + "\n  " + model::hex(entry.bytes) : ""));
}

void Witness::expect(What what, int fd) {
    feed_.take_overflows();
    const Entry& entry = tape_.next();
    if (entry.what == what && entry.fd == fd) return;
    throw Finding("expected " + in_words(entry_of(what, fd)) + "\n  but found " + in_words(entry));
}

void Witness::expect_all(What one, What none, int most, const std::function<void(const Entry& entry)>& take_one) {
    for (; most > 0; --most) {
        if (next_is(none)) return expect(none, 0);
        take_one(take(one));
    }
}

bool Witness::next_is(What what, std::string_view start) const {
    const Entry* entry = tape_.next_beyond_datagrams();
    return entry != nullptr && entry->what == what && entry->text.starts_with(start);
}

}  // namespace kavo::simulation
