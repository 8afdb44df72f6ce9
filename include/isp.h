/*
 * isp.h - in-system programming of a board's MCU through its built-in serial bootloader
 * (USART protocol of the STM32 parts, also served by the GD32 parts).
 *
 * The unit opens no port: the host registers a write and a read function for the serial
 * line to the bootloader, then calls mcu_isp with the image, which is written to the
 * internal flash from 0x08000000 upward in blocks of 256 bytes; mcu_isp_verify reads it
 * back and compares, mcu_isp_go starts the application. Messages go to standard output.
 *
 * Threading: one programming run (or verify, or go) at a time, in the calling thread, which
 * it blocks (up to 80 s for an extended-erase acknowledgement plus the read function's own
 * time-outs). Another thread may poll mcu_isp_cnt and mcu_isp_verify_cnt meanwhile.
 */
#ifndef ISP_H
#define ISP_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

/* The two functions the host registers. Both return a negative value on failure; the read
 * function returns the number of bytes read (0 when its time-out passed with nothing). A
 * read function that returns fewer bytes than asked is called again for the rest. */
typedef int (*mcu_isp_write_fn)(unsigned char *buf, uint16_t len);
typedef int (*mcu_isp_read_fn)(unsigned char *buf, uint16_t len);

typedef struct {
    mcu_isp_write_fn uart_wirte;
    mcu_isp_read_fn uart_read;
} mcu_isp_fun_t;

typedef enum {
    MCU_UNKNOWN = 0,
    MCU_GD32F303 = 1,
    MCU_GD32E503 = 2,
    MCU_GD32F470 = 3,
    MCU_STM32H750 = 4,
    MCU_TYPE_NUM = 5
} en_mcu_type_t;

#define MCU_TYPE_NAME_LEN 16

/* Names of en_mcu_type_t, by value: "MCU_UNKNOWN", "MCU_GD32F303", ... */
SDK_API extern const char str_mcu_type[MCU_TYPE_NUM][MCU_TYPE_NAME_LEN];

/* Results of mcu_isp, mcu_isp_verify and mcu_isp_go. */
typedef enum {
    MCU_ISP_OK = 0,
    /* No answer to the synchronisation in 5 attempts, or the acknowledgement of a global
     * erase could not be read. Nothing was written. */
    MCU_ISP_ERR_NO_ANSWER = -1,
    /* The Erase or Extended Erase command was not acknowledged (refused, or no answer).
     * Nothing was erased or written; the progress counter stays at 10. */
    MCU_ISP_ERR_ERASE_REFUSED = -2,
    /* A Write Memory command was not acknowledged: the run stopped at that block. The flash
     * holds the blocks before it and nothing after it. */
    MCU_ISP_ERR_WRITE_REFUSED = -3,
    /* NULL image with a non-zero length, or an image that runs past the 32-bit address
     * space. Nothing was sent. */
    MCU_ISP_ERR_BAD_IMAGE = -4,
    /* mcu_isp_verify: a Read Memory exchange was refused (read protection) or not answered
     * in full (the bootloader stopped answering). The flash was not compared from there on. */
    MCU_ISP_ERR_READ_FAILED = -5,
    /* mcu_isp_verify: the flash differs from the image. */
    MCU_ISP_ERR_VERIFY_MISMATCH = -6,
    /* mcu_isp_go: the Go command or its address was not acknowledged (refused, or no
     * answer). */
    MCU_ISP_ERR_GO_REFUSED = -7
} mcu_isp_result_e;

/* Flash base the image is written to, and the Write Memory block size. */
#define MCU_ISP_FLASH_BASE 0x08000000u
#define MCU_ISP_BLOCK_SIZE 256u

/* Register the write / read function (an mcu_isp_write_fn / mcu_isp_read_fn); replaces any
 * earlier registration; NULL unregisters. Always 0. */
SDK_API int mcu_isp_write_func_reg(void *func);
SDK_API int mcu_isp_read_func_reg(void *func);

/* Synchronise with the bootloader, erase the flash (extended mass erase when the
 * bootloader offers it, else global erase) and write len bytes of data from 0x08000000.
 * A mcu_isp_result_e: 0 when the run went through, negative as documented above. */
SDK_API int mcu_isp(unsigned char *data, unsigned int len);

/* Progress of the current or last run: 10 at the start, rising towards 90 during the
 * write; 0 after mcu_isp_cnt_clear. Safe to call from any thread. */
SDK_API int mcu_isp_cnt(void);
SDK_API int mcu_isp_cnt_clear(void);

/* Where mcu_isp_verify stopped. */
typedef struct {
    uint32_t addr;    /* the first differing address, or the first address of the block whose
                       * read failed */
    uint8_t expected; /* the image's byte at addr (a mismatch only) */
    uint8_t found;    /* the flash's byte at addr (a mismatch only) */
} mcu_isp_verify_info_t;

/* Read the first len bytes of the flash back from 0x08000000 through a synchronised
 * bootloader (after mcu_isp) with Read Memory, 256 bytes at a time (the last block asks only
 * the bytes left), and compare them with data. Stops at the first difference or failure:
 * MCU_ISP_OK, MCU_ISP_ERR_VERIFY_MISMATCH, MCU_ISP_ERR_READ_FAILED or MCU_ISP_ERR_BAD_IMAGE
 * (as for mcu_isp). Every read is bounded by the registered read function's time-out. When
 * where is not NULL, a mismatch or failed read fills it in. */
SDK_API int mcu_isp_verify(const unsigned char *data, unsigned int len,
                           mcu_isp_verify_info_t *where);

/* Progress of the current or last verify: the share of the image read back and found equal,
 * in percent (0 at the start, 100 when all of it matched); 0 after mcu_isp_verify_cnt_clear.
 * Safe to call from any thread. */
SDK_API int mcu_isp_verify_cnt(void);
SDK_API int mcu_isp_verify_cnt_clear(void);

/* Start the application at addr (MCU_ISP_FLASH_BASE for the image of mcu_isp) with the Go
 * command of a synchronised bootloader: MCU_ISP_OK once the bootloader acknowledged the
 * address (it no longer answers then), or MCU_ISP_ERR_GO_REFUSED. */
SDK_API int mcu_isp_go(uint32_t addr);

/* Identify the part behind a synchronised bootloader and print "type: <name>". A part that
 * answers neither the GD32 nor the STM32H750 identifier is taken to be a GD32E503. */
SDK_API void mcu_type_detect(void);
/* The type found by the last mcu_type_detect (MCU_UNKNOWN before). */
SDK_API en_mcu_type_t mcu_type_get(void);

/* GD32 product identifier (first four identifier bytes, first byte least significant),
 * or 0 when the command is refused or the answer malformed. */
SDK_API uint32_t read_gd_mcu_pid(void);
/* 0x450 when the Get ID answer is that of an STM32H750, else 0. */
SDK_API int read_st_mcu_pid(void);
/* 0 when the bootloader offers Extended Erase, 1 when not, -1 on failure. */
SDK_API int mcu_erasetype_get(void);

#ifdef __cplusplus
}
#endif

#endif /* ISP_H */
