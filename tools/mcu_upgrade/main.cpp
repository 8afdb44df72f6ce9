// mcu_upgrade: writes a firmware image into an MCU through its serial bootloader, reads it
// back and compares (each with a progress bar), identifies the part and, with -g, starts it.
//
//   mcu_upgrade -p FIRMWARE [OPTION...] [DEVICE]      (-h for the whole usage)
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "common/cli.h"
#include "isp.h"
#include "mcu_upgrade/options.h"
#include "mcu_upgrade/progress.h"
#include "mcu_upgrade/serial_port.h"
#include "mcu_upgrade/transcript.h"

using namespace mcu_upgrade;

namespace {

constexpr uint32_t kDefaultBaud = 115200;

int usage_error(const std::string &message) {
    fprintf(stderr, "mcu_upgrade: %s\n", message.c_str());
    print_usage(stderr);
    return kExitUsage;
}

int setup_error(const std::string &message) {
    fprintf(stderr, "mcu_upgrade: %s\n", message.c_str());
    return kExitSetup;
}

// What went wrong, for a result of the programmer; `at` is where a verify stopped.
std::string failure_text(int result, const mcu_isp_verify_info_t &at, const Settings &s) {
    char text[160];
    switch (result) {
        case MCU_ISP_ERR_NO_ANSWER:
            return "the bootloader did not answer (is the MCU in its bootloader?)";
        case MCU_ISP_ERR_ERASE_REFUSED:
            return "the bootloader refused the erase; nothing was written";
        case MCU_ISP_ERR_WRITE_REFUSED:
            return "the bootloader refused a block; the flash holds only part of the image";
        case MCU_ISP_ERR_BAD_IMAGE:
            return "the image does not fit the address space";
        case MCU_ISP_ERR_READ_FAILED:
            snprintf(text, sizeof text,
                     "the read-back broke off at 0x%08x (the bootloader refused the read or "
                     "stopped answering); the image was written but is not verified",
                     at.addr);
            return text;
        case MCU_ISP_ERR_VERIFY_MISMATCH:
            snprintf(text, sizeof text,
                     "the flash differs from the image: 0x%08x holds 0x%02x, the image 0x%02x "
                     "(the first difference)",
                     at.addr, at.found, at.expected);
            return text;
        case MCU_ISP_ERR_GO_REFUSED:
            snprintf(text, sizeof text,
                     "the bootloader did not start the application at 0x%08x; the image is "
                     "written%s",
                     s.go_address, s.verify ? " and verified" : "");
            return text;
        default:
            return "the programming run failed";
    }
}

// An interrupted run leaves the port to the library again before the process ends.
void on_signal(int sig) {
    release_uart_flag();
    static const char msg[] = "\nmcu_upgrade: interrupted\n";
    ssize_t ignored = write(STDERR_FILENO, msg, sizeof msg - 1);
    (void)ignored;
    _exit(128 + sig);
}

bool load_image(const upgrade_mcu_t &cmd, std::vector<uint8_t> *image, std::string *error) {
    // -l (at most kMaxImage) bounds the read; without it the file must fit the flash.
    if (!tool_common::read_file(cmd.file_path, kMaxImage, "fit the flash (or give -l)", image,
                                error, cmd.n_size != 0 ? cmd.n_size : tool_common::kWholeFile))
        return false;
    if (cmd.n_size > image->size()) {
        *error = "-l " + std::to_string(cmd.n_size) + " is more than the " +
                 std::to_string(image->size()) + " bytes of " + cmd.file_path;
        return false;
    }
    if (image->empty()) {
        *error = std::string(cmd.file_path) + " is empty";
        return false;
    }
    return true;
}

int upgrade_main(int argc, char **argv) {
    const auto started = std::chrono::steady_clock::now();
    Settings s;
    std::string error;
    if (!parse(argc, argv, &s, &error)) return usage_error(error);
    if (s.help) {
        print_usage(stdout);
        return kExitDone;
    }
    if (s.cmd.n_version != 0) {
        printf("mcu_upgrade (libtransfer) %s\n", MCU_UPGRADE_VERSION);
        return kExitDone;
    }
    if (s.cmd.file_path[0] == 0) return usage_error("no firmware image: give -p FILE");

    std::vector<uint8_t> image;
    if (!load_image(s.cmd, &image, &error)) return setup_error(error);

    uint32_t baud = kDefaultBaud;
    std::string device = s.device;
    if (device.empty()) {
        // parse() has checked that a given slot is a whole number.
        if (s.cmd.n_slot_id[0] == 0)
            return usage_error("no serial device: give DEVICE, or -s slot to look it up in " +
                               transfer_config_path());
        const auto slot = static_cast<uint32_t>(strtoul(s.cmd.n_slot_id, nullptr, 0));
        if (!device_from_config(transfer_config_path(), slot, s.cmd.n_mode_id, &device, &baud,
                                &error))
            return setup_error(error);
    }

    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);

    SerialPort port;
    if (!port.open(device, baud, s.cmd.n_timeout, &error)) return setup_error(error);
    const size_t blocks = (image.size() + MCU_ISP_BLOCK_SIZE - 1) / MCU_ISP_BLOCK_SIZE;
    printf("mcu_upgrade: writing %zu bytes (%zu blocks) of %s to %s at %u bit/s\n", image.size(),
           blocks, s.cmd.file_path, device.c_str(), baud);
    fflush(stdout);

    const char *verbose = getenv("MCU_UPGRADE_VERBOSE");
    Transcript transcript(verbose == nullptr || strcmp(verbose, "1") != 0);
    const auto size = static_cast<unsigned int>(image.size());
    ProgressBar bar(stderr, "write ", kWriteCounter);
    bar.start();
    int result = mcu_isp(image.data(), size);
    bar.finish(result == MCU_ISP_OK);
    mcu_isp_verify_info_t at{};
    if (result == MCU_ISP_OK && s.verify) {
        ProgressBar verify_bar(stderr, "verify", kVerifyCounter);
        verify_bar.start();
        result = mcu_isp_verify(image.data(), size, &at);
        verify_bar.finish(result == MCU_ISP_OK);
    }
    if (result == MCU_ISP_OK) mcu_type_detect();
    // The application starts last: the bootloader answers nothing after the Go.
    if (result == MCU_ISP_OK && s.go) result = mcu_isp_go(s.go_address);
    const std::string messages = transcript.close();
    port.close();
    // The whole run: synchronisation, erase, write, verify, naming the part and the Go.
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();

    if (result != MCU_ISP_OK) {
        // The explanation first; the programmer's own lines only as detail after it.
        fprintf(stderr, "mcu_upgrade: failed (%d): %s\n", result,
                failure_text(result, at, s).c_str());
        // The programmer announces the erase once it is synchronised.
        if (result == MCU_ISP_ERR_NO_ANSWER && !messages.empty() &&
            messages.find("erase mcu memory") == std::string::npos)
            fprintf(stderr,
                    "mcu_upgrade: nothing came back on %s within %u ms of any of the five "
                    "synchronisation bytes\n",
                    device.c_str(), s.cmd.n_timeout);
        const std::string detail = tail(messages, 8);
        if (!detail.empty()) {
            fprintf(stderr, "mcu_upgrade: the programmer's last messages:\n");
            size_t start = 0;
            while (start < detail.size()) {
                const size_t end = detail.find('\n', start);
                fprintf(stderr, "    %s\n", detail.substr(start, end - start).c_str());
                start = end + 1;
            }
        }
        return result == MCU_ISP_ERR_VERIFY_MISMATCH ? kExitMismatch : kExitFailed;
    }
    printf("mcu_upgrade: done in %.1f s: %zu bytes written %sat 0x%08x, part %s\n", seconds,
           image.size(), s.verify ? "and verified " : "(not verified) ", MCU_ISP_FLASH_BASE,
           str_mcu_type[mcu_type_get()]);
    if (s.go) printf("mcu_upgrade: the application was started at 0x%08x\n", s.go_address);
    return kExitDone;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return upgrade_main(argc, argv);
    } catch (const std::exception &e) {
        release_uart_flag();
        fprintf(stderr, "mcu_upgrade: %s\n", e.what());
    } catch (...) {
        release_uart_flag();
        fprintf(stderr, "mcu_upgrade: unexpected failure\n");
    }
    return kExitSetup;
}
