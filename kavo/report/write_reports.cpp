#include <fstream>

#include "kavo/basics/problem.h"
#include "kavo/report/page.h"
#include "kavo/report/report.h"

namespace kavo::companion {

namespace {

void write(const std::filesystem::path& file, const std::string& text) {
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.flush();
    if (!out)
        throw Problem(Status::bench, "cannot write " + file.string() + ": is the disk full, or the folder read-only?");
}

}  // namespace

void write_reports(const Report& report, const Journal& journal) {
    write(report.folder.verdict("txt"), text_report(report));
    write(report.folder.verdict("json"), json_report(report));
    write(report.folder.verdict("xml"), junit_report(report));
    write(report.folder.verdict("html"), page(report, journal));
}

}  // namespace kavo::companion
