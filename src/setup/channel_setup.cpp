// The four channel set-up members: one per board class, each a thin frame around the
// shared board-array walk (channel_walk.cpp).
#include "setup/channel_setup.h"

#include "common/log.h"

namespace {

using sdk::setup::BoardClass;
using sdk::setup::LogStyle;

constexpr BoardClass kMainCards{
    "maincards",
    "main_card",
    &transfer_info_t::st_main_card,
    "maincard transfer is null",
    LogStyle::kMain,
    sdk::setup::kOpenUdp | sdk::setup::kOpenReportUdp | sdk::setup::kOpenUart};
constexpr BoardClass kSubCards{"subcards",
                               "sub_card",
                               &transfer_info_t::st_sub_card,
                               "subcard transfer is null",
                               LogStyle::kSub,
                               sdk::setup::kOpenUdp | sdk::setup::kOpenReportUdp};
constexpr BoardClass kBackplane{"backplane",
                                "backplane",
                                &transfer_info_t::st_backplane,
                                "backplane transfer is null",
                                LogStyle::kBackplane,
                                sdk::setup::kOpenUdp | sdk::setup::kOpenUart};
constexpr BoardClass kReport{"report",
                             "report",
                             &transfer_info_t::st_report,
                             "report transfer is null",
                             LogStyle::kReport,
                             sdk::setup::kOpenUdp | sdk::setup::kOpenReportUdp};

int32_t finish(int32_t ret) {
    TLOGI("end ret :%d", ret);
    return ret;
}

}  // namespace

extern "C" SDK_API int32_t sdk_maincards_transfer_init(mio_json *p_transfer_root) {
    TLOGI("start!");
    return finish(sdk::setup::setup_board_class(kMainCards, p_transfer_root, nullptr));
}

extern "C" SDK_API int32_t sdk_subcards_transfer_init(char *slot, uint32_t slotnum,
                                                      mio_json *p_transfer_root) {
    TLOGI("start!");
    const sdk::setup::SlotList filter{slot, slotnum};
    return finish(sdk::setup::setup_board_class(kSubCards, p_transfer_root, &filter));
}

extern "C" SDK_API int32_t sdk_backplane_transfer_init(mio_json *p_transfer_root) {
    return finish(sdk::setup::setup_board_class(kBackplane, p_transfer_root, nullptr));
}

extern "C" SDK_API int32_t sdk_report_transfer_init(mio_json *p_transfer_root) {
    TLOGI("start!");
    return finish(sdk::setup::setup_board_class(kReport, p_transfer_root, nullptr));
}
