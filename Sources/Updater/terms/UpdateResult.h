#pragma once

/// What the update procedure ends with; the number is the exit status of the process.
enum class UpdateResult : int {
  Done = 0,                     ///< updated, or nothing to do
  NotAdministrator = 1,         ///< the process lacks administrator rights
  TransferFailed = 2,           ///< version text, size query or package download
  UnsupportedArchitecture = 3,  ///< could not be read, or is not supported
  InvalidInstalledVersion = 4,  ///< the version argument
  InvalidServerVersion = 5,     ///< the server's version text
  WrongSize = 6,                ///< the package never reached the expected size
  WrongDigest = 7,              ///< size unknown, or the digest never matched
  AttachFailed = 9,             ///< the disk image could not be attached
  Exception = 11,               ///< no temporary folder, or an exception on the way
};
