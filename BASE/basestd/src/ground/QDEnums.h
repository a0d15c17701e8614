#pragma once

/// The kind of a file system object.
enum QDFileType : int {
  QD_FILETYPE_REG = 1,
  QD_FILETYPE_DIR = 2,
  QD_FILETYPE_SYMLINK = 3,
  QD_FILETYPE_NOTEXISTS = 4,
  QD_FILETYPE_EFS = 10,
  QD_FILETYPE_FIFO = 21,
  QD_FILETYPE_SOCK = 22,
  QD_FILETYPE_BSPE = 23,
  QD_FILETYPE_CSPE = 24,
  QD_FILETYPE_DOOR = 25,
  QD_FILETYPE_UNKNOWN = 50,
  QD_FILETYPE_OUTOFPROT = 98,
  QD_FILETYPE_ERROR = 99,
  QD_FILETYPE_RAWDISK = 401,
  QD_FILETYPE_RAWVOL = 402,
  QD_FILETYPE_MNTPOINT = 500,
};

/// How a file is opened.
enum QDOpenMode : int {
  QD_OPENMODE_RWNOTEXISTING = 1,  ///< read and write, the file must not exist yet
  QD_OPENMODE_RWEXISTING = 2,     ///< read and write, the file must exist
  QD_OPENMODE_RWCANCREATE = 3,    ///< read and write, created when missing
  QD_OPENMODE_RDONLY = 4,         ///< read only
};

/// The type of a tunable.
enum QDTunableType : int {
  QD_TUNABLE_TYPE_UNDEF = 0,
  QD_TUNABLE_TYPE_BOOL = 1,
  QD_TUNABLE_TYPE_U32 = 2,
  QD_TUNABLE_TYPE_U64 = 3,
  QD_TUNABLE_TYPE_STR = 4,
};
