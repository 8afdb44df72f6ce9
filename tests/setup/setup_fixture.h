// Shared by the channel set-up tests: loads a configuration text into g_st_transfer the
// way start-up does, and closes every endpoint that set-up opened when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/log_capture.h"
#include "transfer_server.h"

namespace sdk::test {

class ChannelSetup : public ::testing::Test {
  protected:
    void TearDown() override {
        close_endpoints();
        mio_json_delete(root_);
        root_ = nullptr;
    }

    // Parses the text and runs the loader on a configuration record reset to zero, as a
    // fresh process has it. The loader's result; the log is cleared after it.
    int32_t load(const std::string &text) {
        close_endpoints();
        mio_json_delete(root_);
        free(g_st_transfer.st_info);
        g_st_transfer = transfer_info_t{};
        root_ = mio_json_fromstring(text.c_str());
        if (root_ == nullptr) {
            ADD_FAILURE() << "configuration text is not JSON";
            return -1;
        }
        int32_t ret = sdk_device_transfer_mem_init(root_);
        log().clear();
        return ret;
    }

    mio_json *root() const { return root_; }
    static transfer_data_t &channel(int id) { return g_st_transfer.st_info[id]; }
    static LogCapture &log() { return log_capture(); }

  private:
    static void close_endpoints() {
        for (int i = 0; i < g_st_transfer.n_num; ++i) {
            transfer_data_t &ch = g_st_transfer.st_info[i];
            if (ch.n_type != 0 && ch.n_fd >= 0) close(ch.n_fd);
            ch.n_fd = -1;
        }
    }

    mio_json *root_ = nullptr;
};

}  // namespace sdk::test
