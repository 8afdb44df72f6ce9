// Where a rule's lines go: a file, standard output or error, syslog. Each write() call
// gets one whole line and writes it with a single write(2) under the output's lock, so
// lines of different threads never interleave.
#pragma once

#include <syslog.h>

#include <memory>
#include <string>

#include "event.h"

namespace zl {

struct OutputDecl {
    enum class Kind { File, Stdout, Stderr, Syslog, Pipe, Record };
    Kind kind = Kind::Stdout;
    std::string target;       // file path (may hold conversions), command or record name
    bool sync = false;        // -"path": O_SYNC
    int facility = LOG_USER;  // >syslog, LOG_LOCAL0
    long rotate_size = 0;     // "path", 10MB * 3 ~ "x.#r.log" (see rotate.h); 0: none
    long rotate_count = 0;
    std::string rotate_pattern;

    // Rules with equal keys share one output.
    std::string key() const;
};

class Output {
  public:
    virtual ~Output() = default;
    virtual void write(const std::string &line, Event &ev) = 0;
};

// Opens an output (a static file is opened now). Null with a message on failure.
std::unique_ptr<Output> open_output(const OutputDecl &decl, unsigned perms, std::string &err);

}  // namespace zl
