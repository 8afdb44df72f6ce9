/*
 * mio_sdfile.h - file and directory utilities of the host programs: positioned record I/O
 * on standard streams, existence tests, directory creation, clearing, deletion, moving
 * and copying, path splitting, free numbered names, file size and directory-scan filters.
 *
 * Messages go to standard output. No path ever reaches a shell: directory creation,
 * clearing and deletion use system calls, moving runs mv(1) without a shell, so blanks,
 * quotes, semicolons or "$(...)" in a path are just characters of the name.
 *
 * Paths longer than MIO_PATH_MAX - 1 bytes (including the paths built while walking a
 * tree) are refused without touching anything: the operation prints a line and fails.
 * The free-name functions write at most MIO_NAME_MAX bytes to their output.
 *
 * Threading: no state of its own; as safe as the underlying calls.
 */
#ifndef MIO_SDFILE_H
#define MIO_SDFILE_H

#include <dirent.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef SDK_API
#define SDK_API __attribute__((visibility("default")))
#endif

/* Longest path handled, terminating zero included. */
#define MIO_PATH_MAX 4096
/* Size of the output of mio_getunusedfilename / mio_getunuseddirname, zero included. */
#define MIO_NAME_MAX 256

/* Streams: append ("a"), write from empty ("w"), read ("r"); NULL on failure. */
SDK_API FILE *mio_openwritefile_add(char *filename);
SDK_API FILE *mio_openwritefile(char *filename);
SDK_API FILE *mio_openreadfile(char *filename);
/* Closes the stream; nothing for NULL. */
SDK_API void mio_closefile(FILE *fp);

/* Seek to begin (from the start; a failed seek leaves the stream where it is) and write
 * one item of length bytes: true when written; false for a NULL stream or buffer. */
SDK_API bool mio_writestructtosd(FILE *fp, int begin, int length, void *stu);
/* As mio_writestructtosd, then flushes the stream and syncs the file to its device: true
 * only when the item is written, flushed and synced. */
SDK_API bool mio_writestructtosd_sync(FILE *fp, int begin, int length, void *stu);
/* Seek and read one item of length bytes: 1 when read whole, 0 when not, -1 for a NULL
 * stream or buffer. */
SDK_API int mio_readstructfromsd(FILE *fp, int begin, int length, void *stu);
/* Seek and write length bytes: true when at least one was written. */
SDK_API bool mio_writechartosd(FILE *fp, int begin, int length, char *chr);
/* Seek and read up to length bytes: the count read, or -1 for a NULL stream or buffer. */
SDK_API int mio_readcharfromsd(FILE *fp, int begin, int length, char *chr);
/* Seek and write / read one 4-byte int in the machine's byte order. */
SDK_API bool mio_writeinttosd(FILE *fp, int begin, int *number);
SDK_API int mio_readintfromsd(FILE *fp, int begin, int *number);

/* True when the path exists, whatever its kind (a dangling symbolic link included). */
SDK_API bool mio_fileexist(const char *filename);
/* True when the path can be opened as a directory. */
SDK_API bool mio_directoryexist(const char *dirname);

/* Creates the directory (mode 0766), or with its missing parents when that fails. False
 * for NULL or a path that is too long; otherwise true, even when the directory could not
 * be made (that prints "cmd=mkdir -p <path>"). */
SDK_API bool mio_createdirectory(char *dirname);
/* Removes what the shell pattern "<dir>*" would match, the characters of dir taken
 * literally: with a trailing "/", the directory's entries (not those beginning with a dot).
 * Refuses the root: the empty path, a lone slash, slash-asterisk, backslash-asterisk, a
 * lone asterisk, and any other path that names "/" itself. */
SDK_API void mio_cleardirectory(char *dir);
/* Deletes a regular file, or a directory tree with everything in it (symbolic links are
 * removed, never followed). A symbolic link, device or pipe given as path is left alone.
 * True when there was nothing to delete or everything was deleted; false when something
 * could not be opened or removed. */
SDK_API bool mio_deletedirectory(char *path);
/* Removes the file: true on success. */
SDK_API bool mio_deletefile(char *filename);
/* Moves with "mv -f" (into desdir when that is a directory), run without a shell, and
 * prints the command. The result is not reported. */
SDK_API void mio_movedirectory(char *srcdir, char *desdir);
/* Copies a file, creating the destination's directory when missing. False when the source
 * cannot be opened, the destination cannot be written, or a path is too long. Copying a
 * file onto itself does nothing and returns true. */
SDK_API bool mio_copyfile(char *oldFile, char *newFile);
/* Copies a directory tree (regular files and sub-directories; symbolic links and special
 * files are skipped), replacing a destination directory. False when the source is not a
 * directory or cannot be opened, source and destination overlap (one inside the other),
 * a file copy fails, or a path in the tree is too long. */
SDK_API bool mio_copydirectory(char *oldPath, char *newPath);

/* Part after the last "/" into filename (which must hold strlen(path) + 1 bytes): true;
 * false, filename untouched, when the path has no "/". */
SDK_API bool mio_getfilename(char *path, char *filename);
/* Path up to and including its last "/" (the whole path when it has none) into dirname
 * (which must hold strlen(path) + 1 bytes). True; false only for NULL arguments. */
SDK_API bool mio_getdirname(char *path, char *dirname);
/* First free name "<front><n><ext>" for n = 0..999 (MIO_NAME_MAX bytes at most): n, with
 * the name copied into filename / dirname; -1 when all are taken, an argument is NULL or
 * the name does not fit (output untouched). The file variant wants no path of that name,
 * the directory variant no directory. */
SDK_API int mio_getunusedfilename(char *front, const char *ext, char *filename);
SDK_API int mio_getunuseddirname(char *front, char *ext, char *dirname);
/* Size in bytes of what the path names (symbolic links followed), -1 when it cannot be
 * examined. */
SDK_API int64_t mio_getfilesize(const char *path);

/* Directory-scan filters: dirfilter keeps directories other than "." and "..";
 * filefilter keeps every entry that is not a directory. */
SDK_API int dirfilter(const struct dirent *pDir);
SDK_API int filefilter(const struct dirent *pDir);
/* Frees memory handed back by a directory scan; nothing for NULL. */
SDK_API void disposecharptr(void *str);

#ifdef __cplusplus
}
#endif

#endif /* MIO_SDFILE_H */
