// A binary registry read where its bytes lie in memory: its layout and its frames. What is in a frame of the global
// registry GlobalRegFields.h tells. An addition, for programs that show, check or copy a registry without opening it.
//
// No byte is trusted, and none outside the given ones is read: any bytes may be asked about, the damaged file, a part
// of one, a file of another kind. No file is touched and no memory taken; pure functions, any thread, any alignment.
// What is handed out points into the bytes and lives as long as they do. Offsets, sizes and lengths are in bytes.
//
// The layout of a file:
//   0        32  only with a checksum header: sqlzChecksumXOR of all that follows as "%d" text, its NUL, then anything
//   0 or 32   4  payload length L, unsigned; in the machine's byte order, or big-endian throughout the file
//   +4        L  payload
//   ...          the next frame; nothing stands between them, and the last one ends the file
#pragma once

#include <genreg/Codes.h>
#include <genreg/Constants.h>
#include <genreg/Export.h>

constexpr unsigned long REG_CHECKSUM_HEADER_SIZE = 32;
constexpr unsigned long REG_FRAME_LENGTH_SIZE = 4;

struct GenRegLayout {
    unsigned long features;  // of REG_FEATURE_CHECKSUM_HEADER and REG_FEATURE_BIG_ENDIAN those that the file asks for
    unsigned long records;   // where the first frame begins: 0, or 32 behind a checksum header
    const char* stated;      // the header's text, with its NUL; null without a header
    int computed;            // the checksum that it should state; 0 without a header
};

struct GenRegFrame {
    const void* payload;
    unsigned long length;  // of the payload
    unsigned long end;     // where the next frame begins
};

extern "C" {

// What the bytes of a whole file are made of, told without knowing its features. 0; REG_CHECKSUM_DIFFERS: there is a
// header, and it does not fit the bytes behind it; REG_NULL_POINTER (layout). Null bytes count as none.
//
// A header is what begins as one (digits, perhaps behind a minus, and a NUL within 12 bytes) and fits. One that does
// not fit is none either when the bytes are frames from the first one on, or begin with a frame of a known type of the
// global registry: the length 54 looks like the text "6". Lengths are in the machine's order where that leads to the
// end of the file; else big-endian where that does, or where it alone gives a first frame.
GENREG_EXPORT unsigned int genregReadLayout(const void* bytes, unsigned long size, GenRegLayout* layout);

// The frame that begins at the offset; of `features` REG_FEATURE_BIG_ENDIAN counts. 0; REG_NO_MORE_RECORDS: the offset
// is the end of the bytes; REG_FRAME_TRUNCATED: the frame does not end within them, and frame->length is what its field
// says, 0 when they end inside the field; REG_NULL_POINTER (frame). Unless 0, payload is null and end the end of the
// bytes.
GENREG_EXPORT unsigned int genregReadFrame(const void* bytes, unsigned long size, unsigned long features,
                                           unsigned long offset, GenRegFrame* frame);
}
