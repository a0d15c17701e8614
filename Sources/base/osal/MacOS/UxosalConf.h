#pragma once

// Configuration strings: one text value kept alone in a small file, as raw bytes without a
// terminator. All functions return 0, or -1 after logging.

/// Reads the value of the file `path` into the `size` bytes of `value` (at most 65,535 are used).
///
/// The value ends at the first TAB, LF, CR or NUL, or with the file; it and a NUL must fit. A
/// missing file is an empty value and no failure. After a failure `value` is empty.
int osal_getconfstr(const char* path, char* value, unsigned int size);

/// Stores `value` in the file `path`, created when missing (0777 before the umask).
///
/// `ownerOnly` narrows its permission bits to 0600 before the value is written, `allReadWrite` sets
/// them to 0666 afterwards; with both, it is 0666 in the end. The file is written in place: a
/// failure may leave it empty or cut, and a reader may see it so meanwhile.
int osal_setconfstr(const char* path, const char* value, bool ownerOnly, bool allReadWrite);

/// Stores `value` in the file `name` of the temporary folder "/tmp/.quietstore\r", which is created
/// when missing. The folder and the file are never reached through a link, and a file of another
/// user is replaced, not written to.
///
/// `name` is a plain file name; the whole path takes at most 1,024 characters. `osal_getconfstr`
/// reads the value back, by the whole path.
int osal_setconfstrtmp(const char* name, const char* value);
