// The UDP endpoint of a channel: one datagram socket bound to the channel's port on every
// local address and connected to the board, so that it only ever sees that board's
// datagrams. Several channels share a port number through address reuse.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "common/log.h"
#include "common/result.h"
#include "transfer_server.h"

namespace {

// A failed bind at a port above this one is not followed by a further try.
constexpr uint32_t kLastWalkPort = 63354;
constexpr uint32_t kMaxPort = 65535;
constexpr const char kProbedInterface[] = "eth0";

enum class Probe { kRunning, kMissing, kStopped };

Probe probe_interface(int fd) {
    ifreq ifr{};
    strncpy(ifr.ifr_name, kProbedInterface, IFNAMSIZ - 1);
    if (ioctl(fd, SIOCGIFFLAGS, &ifr) < 0) {
        TLOGE("ioctl error!\n");
        return Probe::kMissing;
    }
    if ((ifr.ifr_flags & IFF_RUNNING) == 0) {
        TLOGE("eth0 does not exist!\n");
        return Probe::kStopped;
    }
    TLOGI("eth0 is exist!\n");
    return Probe::kRunning;
}

// Open point settled here: a socket that ends up neither bound nor connected is closed,
// and the channel keeps n_fd -1 and n_state 0, so the workers can tell an unopened
// channel by its descriptor as well as by its state and never select or send on it.
void drop_socket(transfer_data_t *ch) {
    close(ch->n_fd);
    ch->n_fd = -1;
    ch->n_state = CHANNEL_NULL;
}

void fill_addresses(transfer_data_t *ch, const char *ip, uint32_t port) {
    memset(&ch->st_remote_address, 0, sizeof(ch->st_remote_address));
    ch->st_remote_address.sin_family = AF_INET;
    // Text that is no dotted quad gives the all-ones address, which the connect refuses.
    ch->st_remote_address.sin_addr.s_addr = inet_addr(ip);
    memset(&ch->st_local_address, 0, sizeof(ch->st_local_address));
    ch->st_local_address.sin_family = AF_INET;
    ch->st_local_address.sin_addr.s_addr = htonl(INADDR_ANY);
    ch->st_local_address.sin_port = htons(static_cast<uint16_t>(port));
    ch->st_remote_address.sin_port = htons(static_cast<uint16_t>(port));
}

// Binds the channel's port, walking upwards while the port is taken. 0, or the failed
// bind's result once the walk is over.
int32_t bind_walk(transfer_data_t *ch, const char *ip, uint32_t port) {
    for (;;) {
        fill_addresses(ch, ip, port);
        int on = 1;
        (void)setsockopt(ch->n_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        int ret = bind(ch->n_fd, reinterpret_cast<const sockaddr *>(&ch->st_local_address),
                       sizeof(ch->st_local_address));
        if (ret == 0) return sdk::kOk;

        char remote[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &ch->st_remote_address.sin_addr, remote, sizeof(remote));
        TLOGE("ip: %s bind fail. port: %d, n_ret: %d", remote, port, ret);
        if (port > kLastWalkPort) {
            TLOGE("ip: %s bind fail. port: %d, n_ret: %d", remote, port, ret);
            return ret;
        }
        ++port;
    }
}

}  // namespace

extern "C" SDK_API int32_t sdk_udp_init(sock_addr_t st_addr, transfer_data_t *p_st_info) {
    TLOGI("start");
    if (p_st_info == nullptr) {
        TLOGE("error code %d", sdk::kErrRefused);
        return sdk::kErrRefused;
    }
    // The description comes by value from the host: a text without its terminator, or a
    // port no socket can have, is refused before anything is opened.
    if (memchr(st_addr.p_ip, '\0', sizeof(st_addr.p_ip)) == nullptr || st_addr.n_port > kMaxPort) {
        TLOGE("udp endpoint refused: ip text unterminated or port %u above %u", st_addr.n_port,
              kMaxPort);
        p_st_info->n_fd = -1;
        return sdk::kErrRefused;
    }

    p_st_info->n_fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (p_st_info->n_fd < 0) {
        TLOGI("port %d is used.", st_addr.n_port);
        return sdk::kErrRefused;
    }

    if (probe_interface(p_st_info->n_fd) != Probe::kRunning) {
        TLOGI("channel %s:%u left unopened", st_addr.p_ip, st_addr.n_port);
        drop_socket(p_st_info);
        return sdk::kOk;  // a missing or stopped interface does not stop start-up
    }

    if (int32_t ret = bind_walk(p_st_info, st_addr.p_ip, st_addr.n_port); ret != sdk::kOk) {
        drop_socket(p_st_info);
        return ret;
    }

    if (connect(p_st_info->n_fd, reinterpret_cast<const sockaddr *>(&p_st_info->st_remote_address),
                sizeof(p_st_info->st_remote_address)) != 0) {
        TLOGE("connect fail!\n");
        drop_socket(p_st_info);
        return sdk::kErrRefused;
    }
    p_st_info->n_state = CHANNEL_OK;
    return sdk::kOk;
}
