#include "mcu_upgrade/transcript.h"

#include <unistd.h>

#include <vector>

namespace mcu_upgrade {

Transcript::Transcript(bool capture) {
    if (!capture) return;
    file_ = tmpfile();
    if (file_ == nullptr) return;
    fflush(stdout);
    saved_stdout_ = dup(STDOUT_FILENO);
    if (saved_stdout_ < 0 || dup2(fileno(file_), STDOUT_FILENO) < 0) {
        if (saved_stdout_ >= 0) ::close(saved_stdout_);
        saved_stdout_ = -1;
        fclose(file_);
        file_ = nullptr;
    }
}

Transcript::~Transcript() {
    close();
}

std::string Transcript::close() {
    std::string text;
    if (file_ == nullptr) return text;
    fflush(stdout);
    dup2(saved_stdout_, STDOUT_FILENO);
    ::close(saved_stdout_);
    saved_stdout_ = -1;
    rewind(file_);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, file_)) > 0)
        text.append(buf, n);
    fclose(file_);
    file_ = nullptr;
    return text;
}

std::string tail(const std::string &text, int lines) {
    std::vector<std::string> kept;  // last line first
    size_t end = text.size();
    while (end > 0 && static_cast<int>(kept.size()) < lines) {
        size_t start = text.rfind('\n', end - 1);
        start = start == std::string::npos ? 0 : start + 1;
        std::string line = text.substr(start, end - start);
        while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
            line.pop_back();
        const size_t cr = line.rfind('\r');
        if (cr != std::string::npos) line.erase(0, cr + 1);
        if (!line.empty()) kept.push_back(std::move(line));
        end = start > 0 ? start - 1 : 0;
    }
    std::string out;
    for (auto it = kept.rbegin(); it != kept.rend(); ++it) {
        out += *it;
        out += '\n';
    }
    return out;
}

}  // namespace mcu_upgrade
