#include "common/line_log.h"

#include <utility>

namespace kavo {

void LineLog::open(const std::string& path) {
    file_.open(path, std::ios::out | std::ios::app);
}

void LineLog::write_to(Listener listener) {
    listener_ = std::move(listener);
}

void LineLog::write(std::string_view line) {
    if (listener_) return listener_(line);
    file_.write(line.data(), static_cast<std::streamsize>(line.size()));
}

void LineLog::flush() {
    if (!listener_) file_.flush();
}

}  // namespace kavo
