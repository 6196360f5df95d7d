// The bits and codes that the registry classes take and keep.
#pragma once

// State of a registry object.
constexpr unsigned long REG_STATE_INITIAL = 0x1;
constexpr unsigned long REG_STATE_LOCKED = 0x10;       // the lock file is held
constexpr unsigned long REG_STATE_SCAN_OPEN = 0x40;    // between OpenScan and CloseScan
constexpr unsigned long REG_STATE_SCAN_AT_END = 0x80;  // GetNext met the end of the file
constexpr unsigned long REG_STATE_CONFIGURED = 0x100;  // the paths are set and valid

// Features, set by the schemas and by setFeature.
constexpr unsigned long REG_FEATURE_DEFERRED_COMMIT = 0x1;     // an update is verified before it is committed
constexpr unsigned long REG_FEATURE_ALLOW_DUPLICATES = 0x2;    // several records may match one key
constexpr unsigned long REG_FEATURE_PACKED = 0x4;              // binary: records are packed in the file
constexpr unsigned long REG_FEATURE_BIG_ENDIAN = 0x8;          // binary: frame lengths are big-endian
constexpr unsigned long REG_FEATURE_GET_IN_SCAN = 0x10;        // Get during a scan searches the scan's file
constexpr unsigned long REG_FEATURE_CHANGE_LOG = 0x20;         // binary: the Log callback hears of updates
constexpr unsigned long REG_FEATURE_NOTIFY = 0x40;             // the Notify callback hears of updates
constexpr unsigned long REG_FEATURE_LINE_CONTINUATION = 0x80;  // text: a backslash before the newline joins lines
constexpr unsigned long REG_FEATURE_CHECKSUM_HEADER = 0x100;   // binary: the file begins with a checksum header

// Operations: of OpenReg and CloseReg, of Verify and of the change log.
constexpr unsigned long REG_OP_READ = 1;  // CloseReg: abandon
constexpr unsigned long REG_OP_CHANGE = 2;
constexpr unsigned long REG_OP_ADD = 4;
constexpr unsigned long REG_OP_DELETE = 8;
constexpr unsigned long REG_OP_FINISH = 16;  // verify and commit

// How to lock.
constexpr unsigned long REG_LOCK_EXCLUSIVE = 0x1;  // wins over shared
constexpr unsigned long REG_LOCK_SHARED = 0x2;
constexpr unsigned long REG_LOCK_WAIT = 0x4;
constexpr unsigned long REG_LOCK_NOWAIT = 0x8;       // wins over wait
constexpr unsigned long REG_LOCK_CREATE_DIR = 0x10;  // create the registry's directory first

// A registry path has at most this many characters, so that every companion fits its buffer.
constexpr unsigned long REG_MAX_PATH_LENGTH = 1017;
// Bytes of a path buffer.
constexpr unsigned long REG_PATH_SIZE = 1024;
// Bytes of a line buffer: a line of a text registry has at most one character less, its newline included.
constexpr unsigned long REG_LINE_SIZE = 2048;
// Bounds of a record's size in bytes.
constexpr unsigned long REG_MIN_RECORD_SIZE = 3;
constexpr unsigned long REG_MAX_RECORD_SIZE = 0x100000;
