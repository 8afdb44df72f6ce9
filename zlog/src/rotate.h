// Size rotation of a file output: "path", 10MB * 3 ~ "path.#2r". When a line would take
// the file past the size, the file is renamed to an archive and a new one started.
// The archive pattern holds "#r" (rolling: 0 is the newest, older ones move up) or "#s"
// (sequence: the newest has the highest number), optionally with a width ("#3s" gives
// 000, 001...); it may hold format conversions such as %d(%F). Without a pattern the
// archives are "path.#r". A count keeps at most that many archives (0: no limit).
#pragma once

#include <memory>
#include <string>

#include "event.h"
#include "format.h"

namespace zl {

class Rotation {
  public:
    // Null with a message when the pattern is malformed.
    static std::unique_ptr<Rotation> create(const std::string &path, long max_size, long max_count,
                                            const std::string &pattern, std::string &err);

    bool due(long long size, size_t adding) const {
        return size > 0 && size + static_cast<long long>(adding) > max_size_;
    }

    // Moves the file to its archive name; the caller then opens a new file.
    void rotate(Event &ev) const;

  private:
    std::string path_;
    long max_size_ = 0;
    long max_count_ = 0;
    std::unique_ptr<Format> before_;  // the pattern before and after "#Nr" / "#Ns"
    std::unique_ptr<Format> after_;
    bool rolling_ = true;
    int width_ = 0;
};

}  // namespace zl
