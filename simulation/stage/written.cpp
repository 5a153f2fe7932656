#include "stage/written.h"

#include <sys/types.h>

#include <algorithm>
#include <ios>
#include <utility>

namespace kavo::simulation {

namespace {

char words[512] = "";

ssize_t write_to_cutter(void* cutter, const char* text, std::size_t size) {
    const std::size_t kept = std::min(size, sizeof words - 1);
    std::copy_n(text + (size - kept), kept, words);
    words[kept] = '\0';
    static_cast<LineCutter*>(cutter)->add({text, size});
    return static_cast<ssize_t>(size);
}

std::FILE* stream_into(LineCutter& cutter) {
    std::FILE* stream = fopencookie(&cutter, "w", {nullptr, write_to_cutter, nullptr, nullptr});
    std::setvbuf(stream, nullptr, _IONBF, 0);
    return stream;
}

}  // namespace

const char* last_words() {
    return words;
}

void LineCutter::add(std::string_view text) {
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        line_.append(text.substr(0, end));
        take_(line_);
        line_.clear();
        text.remove_prefix(end + 1);
    }
    line_.append(text);
}

CaughtCommentary::CaughtCommentary(TakeLine take)
    : cutter_(std::move(take)), spoken_to_(std::exchange(stderr, stream_into(cutter_))) {}

CaughtCommentary::~CaughtCommentary() {
    std::fclose(std::exchange(stderr, spoken_to_));
}

void CaughtLog::attach_to(std::ofstream& stream) {
    static_cast<std::ios&>(stream).rdbuf(this);
}

CaughtLog::int_type CaughtLog::overflow(int_type character) {
    const char text = traits_type::to_char_type(character);
    if (!traits_type::eq_int_type(character, traits_type::eof())) cutter_.add({&text, 1});
    return traits_type::not_eof(character);
}

std::streamsize CaughtLog::xsputn(const char* text, std::streamsize size) {
    cutter_.add({text, static_cast<std::size_t>(size)});
    return size;
}

}  // namespace kavo::simulation
