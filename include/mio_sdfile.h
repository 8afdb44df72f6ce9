/*
 * mio_sdfile.h
 */
#ifndef MIO_SDFILE_H
#define MIO_SDFILE_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
}
#endif

#endif /* MIO_SDFILE_H */
