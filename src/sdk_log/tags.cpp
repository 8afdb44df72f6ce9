// The module tags that log lines carry in the MDC key "tag".
#include "sdk_log.h"

extern "C" {

const char tag_tab[LOG_TAG_NUM][SDK_LOG_TAG_LEN] = {
    "OTHER",
    "LOG_XML",
    "REPORT",
    "LOG_INIT",
    "LOG_SHM",
    "DEVICE",
    "INTERFACE",
    "INPUT",
    "OUTPUT",
    "LAYER",
    "MVR",
    "SCREEN",
    "PRESET",
    "JSON",
    "TRANSFER",
    "SOCKET",
    "SOCKET",
    "HAL",
    "MVR_FONT",
    "CU_TEST",
    "UPGRADE",
    "DISPATCHER",
    "RVCARD_MANAGE",
    "RVCARD_DISCOVER",
    "CABINET_MANAGE",
    "TOPOLOGY",
    "SENDER_OUTPUT",
    "LOG_CABINET_SERVICE",
    "PICTURE",
    "BMP",
    "LAYBACK",
    "CENTRAL_CTRL",
    "TRIGGER",
    "SEND_SERVICE",
    "DATA_CENTRE",
    "LOG_HWSCREEN",
    "LOG_ETH_CAPACITY",
};

}  // extern "C"

static_assert(LOG_TAG_NUM == 37, "the tag table has 37 entries");
