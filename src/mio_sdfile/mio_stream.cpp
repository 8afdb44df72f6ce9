// Streams and positioned record, byte and integer I/O.
#include <unistd.h>

#include <cerrno>

#include "mio_sdfile/mio_internal.h"

namespace {

// The result of the seek is not checked: a failed seek leaves the stream where it was
// and the transfer happens there.
void seek_to(FILE *fp, int begin) {
    (void)fseek(fp, begin, SEEK_SET);
}

bool write_item(FILE *fp, int begin, int length, const void *stu) {
    if (fp == nullptr || stu == nullptr || length <= 0) return false;
    seek_to(fp, begin);
    return fwrite(stu, static_cast<size_t>(length), 1, fp) == 1;
}

}  // namespace

extern "C" {

SDK_API FILE *mio_openwritefile_add(char *filename) {
    return filename == nullptr ? nullptr : fopen(filename, "a");
}

SDK_API FILE *mio_openwritefile(char *filename) {
    return filename == nullptr ? nullptr : fopen(filename, "w");
}

SDK_API FILE *mio_openreadfile(char *filename) {
    return filename == nullptr ? nullptr : fopen(filename, "r");
}

SDK_API void mio_closefile(FILE *fp) {
    if (fp != nullptr) fclose(fp);
}

SDK_API bool mio_writestructtosd(FILE *fp, int begin, int length, void *stu) {
    return write_item(fp, begin, length, stu);
}

SDK_API bool mio_writestructtosd_sync(FILE *fp, int begin, int length, void *stu) {
    bool written = write_item(fp, begin, length, stu);
    if (fp == nullptr) return false;
    // The sync variant promises the record is on the device when it returns true: flush
    // the stream and sync the file after a successful write (and flush after a failed one
    // too, so that what did get buffered does not linger).
    if (fflush(fp) != 0) return false;
    if (!written) return false;
    // Descriptors that cannot be synced (a pipe, a terminal) have nothing to sync.
    if (fsync(fileno(fp)) != 0 && errno != EINVAL && errno != EROFS) return false;
    return true;
}

SDK_API int mio_readstructfromsd(FILE *fp, int begin, int length, void *stu) {
    if (fp == nullptr || stu == nullptr) return -1;
    if (length <= 0) return 0;
    seek_to(fp, begin);
    return static_cast<int>(fread(stu, static_cast<size_t>(length), 1, fp));
}

SDK_API bool mio_writechartosd(FILE *fp, int begin, int length, char *chr) {
    if (fp == nullptr || chr == nullptr || length <= 0) return false;
    seek_to(fp, begin);
    return fwrite(chr, 1, static_cast<size_t>(length), fp) > 0;
}

SDK_API int mio_readcharfromsd(FILE *fp, int begin, int length, char *chr) {
    if (fp == nullptr || chr == nullptr) return -1;
    if (length <= 0) return 0;
    seek_to(fp, begin);
    return static_cast<int>(fread(chr, 1, static_cast<size_t>(length), fp));
}

SDK_API bool mio_writeinttosd(FILE *fp, int begin, int *number) {
    return write_item(fp, begin, sizeof(int), number);
}

SDK_API int mio_readintfromsd(FILE *fp, int begin, int *number) {
    return mio_readstructfromsd(fp, begin, sizeof(int), number);
}

}  // extern "C"
