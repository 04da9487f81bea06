// The error codes that every layer above the stream returns, and their texts.
#pragma once

namespace tolven {

// Classes whose interface speaks in these codes derive from this.
struct ErrorCodes {
  enum : int {
    ERR_OK = 0,
    ERR_INT = -1,
    ERR_IO = -2,
    ERR_SYS = -3,
    ERR_INVAL = -4,
    ERR_PROTO = -5,
    ERR_AUTH = -6,
    ERR_SERVER = -7,
    ERR_CONFLICT = -8,
    ERR_TIMEOUT = -9,
    ERR_VERSION = -10,
    ERR_NOENT = -11,
    ERR_USER = -12,
    ERR_PASSWORD = -13,
    ERR_VRKDISABLE = -14,
    ERR_QUOTA = -15,
    ERR_DISKFULL = -16,
    ERR_SYNCFOLDER_MISS = -17,
    ERR_VIEW = -18,
    ERR_PERMISS = -19,
    ERR_VIEW_PATH = -20,
    ERR_CH_CONNECTION_ABORT = -21,
    ERR_LOCAL_DISKFULL = -22,
    ERR_LOCKED_FILE = -23,
    ERR_SSL_VERIFY_FAIL = -24,
    ERR_PERMISS_READ_ONLY = -25,
    ERR_NO_UPLOAD_PERM = -26,
    ERR_CONFLICT_DOWNLOAD = -27,
    ERR_NOT_MOUNTED = -28,
    ERR_WATCH_VOL_UMOUNT = -29,
    ERR_SESSION_INITIAL = -30,
    ERR_NO_ACCESS_PERM = -31,
    ERR_BUILD_NUM_CHANGED = -32,
    ERR_FILE_TOO_BIG = -33,
    ERR_MAX = 34,  // the count of the codes above
  };
};

// The text of a code of 0 or below, for log lines and reports. "Unknown error" for any other.
const char* ErrorText(int code);

}  // namespace tolven
