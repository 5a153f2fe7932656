// Texts that came over a wire may hold any byte at all. Whatever is shown of them is made of printable characters
// first, so that no id can end a line, a string, an element or the state of a terminal.
#pragma once

#include <string>
#include <string_view>

namespace kavo::companion {

// The same text where it is printable UTF-8; every other byte as \xNN, and a backslash doubled.
std::string printable(std::string_view text);
// The same for a sentence of which every text was made printable before, so a backslash in it stays as it is.
std::string printable_sentence(std::string_view sentence);

// Printable, and with & < > " ' as entities: for the text and the attributes of XML and HTML.
std::string for_markup(std::string_view text);
std::string sentence_for_markup(std::string_view sentence);

// "+1.203 s": a moment of the run. Nothing for a moment that is not known.
std::string since_start(unsigned long long ns, unsigned long long started_ns);

}  // namespace kavo::companion
