// The engine for registries of length-framed binary records.
//
// File: frames one after another, nothing between them; with REG_FEATURE_CHECKSUM_HEADER 32 bytes stand before the
// first.
//   0 or 32  4  payload length L, unsigned; big-endian with REG_FEATURE_BIG_ENDIAN, else in the machine's order
//   +4       L  payload: the packed image of a record with REG_FEATURE_PACKED, else the record's bytes in memory
// Checksum header: sqlzChecksumXOR of all bytes from offset 32 on, as "%d" text with its NUL, then zeros.
// L is 3 to 1,048,576 when written; when read, a frame must end within the file.
//
// What a schema's functions owe this engine, beyond what GenRegBase.h asks:
// - A record is copied as bytes, so nothing in it points into itself or needs to be freed.
// - With packing on, what PackRecord writes UnpackRecord reads back as an equal record; an update whose image says
//   something else is REG_VERIFY_FAILED. Without it the record's bytes are the file's, padding included: clear a record
//   before you fill it.
// - Images come from a file that anybody may have damaged. Of a schema that says how to check them (useShortcuts) the
//   other functions see whole ones only; one that does not has to bear any bytes, with zeros behind them up to
//   GetMaxRecordSize.
//
// Codes, besides those that stand with each operation:
// every one          REG_RECORD_REFUSED, REG_NO_VALIDATE_RECORD, REG_NO_GET_MAX_RECORD_SIZE, REG_RECORD_TOO_SMALL,
//                    REG_RECORD_SIZE_REFUSED, REG_NO_RECORD_BUFFER, REG_NO_MATCH_RECORD, REG_NO_UNPACK_RECORD,
//                    REG_UNPACK_FAILED, REG_READ_FAILED, REG_FREE_RECORD_FAILED; all but GetNext REG_OPEN_FAILED,
//                    REG_CLOSE_FAILED
// Add, Change,       REG_LOCK_FAILED, REG_UNLOCK_FAILED, REG_COPY_WRITE_FAILED, REG_VERIFY_FAILED, REG_DISCARD_FAILED,
// Delete             REG_NO_PACK_RECORD, REG_PACK_FAILED, REG_NO_NOTIFY
// genregLastCause tells what stands behind a code. A call that fails leaves the old file, but for the cases in
// docs/promises.md; REG_UNLOCK_FAILED, REG_FREE_RECORD_FAILED and REG_NO_NOTIFY come after the commit.
//
// Compare and set. Change and Delete touch what matches the key once they hold the lock. So a key that names the old
// value too (key: what Get found; mask: every field that matters) makes a change only where nobody else was faster;
// REG_NOT_FOUND says that somebody was.
#pragma once

#include <genreg/GenRegFile.h>

// Replaces the record in *buffer by its packed image. The buffer comes from _ossMemAlloc and holds at least
// GetMaxRecordSize bytes; the callback replaces it when the image is larger. previousImage is the record's image as it
// stood in the file, or null for a new record.
using GenRegPackRecord = unsigned int (*)(void** buffer, void* previousImage);
// Replaces the image in *buffer by the record; the same buffer rules.
using GenRegUnpackRecord = unsigned int (*)(void** buffer);
using GenRegGetPackedRecordSize = unsigned int (*)(void* packed, unsigned long* size);

// Additions, null unless a schema fills them; nothing changes when they are null. The images that they are given, and
// the previous image that PackRecord is given once checkPacked is filled, lie in the file's bytes: at any alignment,
// and with nothing behind their length. 0 when the image is whole: every length in it stays within the image and its
// member. Asked before an image from a file is unpacked, measured or carried over; a bad one is refused with
// REG_UNPACK_FAILED.
using GenRegCheckPacked = unsigned int (*)(const void* image, unsigned long length);
// False when the record of this (checked) image surely does not match the key under the mask; saves unpacking it.
using GenRegPackedMayMatch = bool (*)(unsigned long mask, const void* image, unsigned long length, const void* key);
// Whether unpacking this (checked) image and packing it again with itself as the previous image gives the same bytes.
using GenRegPacksAlike = bool (*)(const void* image, unsigned long length);

namespace genreg {
class BinFrames;
struct FrameWays;
}  // namespace genreg

class GENREG_EXPORT GenRegBin : public GenRegFile {
public:
    GenRegBin() noexcept;
    ~GenRegBin() noexcept;

    // The code of the first slot that is missing: validate, size and, with packing on, pack and unpack; else 0.
    unsigned int CheckFuncPtrs() noexcept;

    // Reads the frame at the stream's position. *buffer (from _ossMemAlloc, GetMaxRecordSize bytes) gets the payload;
    // it is replaced when the frame is larger, and is the caller's either way. *length is set even on failure. 0;
    // REG_NO_MORE_RECORDS; REG_FRAME_TRUNCATED; REG_FRAME_LENGTH_READ_FAILED; REG_FRAME_PAYLOAD_READ_FAILED;
    // REG_NO_WORK_BUFFER; REG_FREE_WORK_BUFFER_FAILED; REG_NO_GET_MAX_RECORD_SIZE; REG_NULL_POINTER.
    unsigned int ReadRecord(std::FILE* stream, void** buffer, unsigned long* length) noexcept;
    // Writes one frame at the stream's position. The record is packed already when packing is on. REG_RECORD_TOO_SMALL,
    // REG_RECORD_SIZE_REFUSED: nothing is written. REG_FRAME_LENGTH_WRITE_FAILED, REG_FRAME_PAYLOAD_WRITE_FAILED,
    // REG_NO_GET_RECORD_SIZE, REG_NO_GET_PACKED_RECORD_SIZE, REG_NULL_POINTER.
    unsigned int WriteRecord(std::FILE* stream, void* record) noexcept;

    // The first record that matches, into result (GetMaxRecordSize bytes). REG_NOT_FOUND zeroes it. REG_MISSING: there
    // is no file.
    unsigned int Get(unsigned long matchType, void* key, void* result) noexcept;
    // The next one of the open scan; with mask 0 and a null key the next one whatever it holds. REG_SCAN_NOT_OPEN;
    // REG_NO_MORE_RECORDS at the end and ever after.
    unsigned int GetNext(unsigned long matchType, void* key, void* result) noexcept;

    // Appends a record, and makes file and folder where there are none. REG_DUPLICATE when one matches already and
    // duplicates are not allowed. REG_CALLBACK_MISSING (CheckFuncPtrs tells which), REG_FILE_SIZE_FAILED,
    // REG_SEEK_END_FAILED, REG_RECORD_WRITE_FAILED.
    unsigned int Add(unsigned long matchType, void* record) noexcept;
    // Replaces the record that matches (every one where duplicates are allowed). REG_NOT_FOUND, REG_SEVERAL_MATCH,
    // REG_UNCHANGED.
    unsigned int Change(unsigned long matchType, void* key, void* newRecord) noexcept;
    // Removes the record that matches (every one where duplicates are allowed). REG_NOT_FOUND, REG_SEVERAL_MATCH.
    unsigned int Delete(unsigned long matchType, void* key) noexcept;
    // Whether the temporary copy differs from the registry by just this change; commits it if so.
    unsigned int Verify(unsigned long operationCode, unsigned long matchType, void* record, void* key) noexcept;

protected:
    GenRegPackRecord packRecord = nullptr;
    GenRegUnpackRecord unpackRecord = nullptr;
    GenRegGetPackedRecordSize getPackedRecordSize = nullptr;
    // By useShortcuts alone.
    GenRegCheckPacked checkPacked = nullptr;
    GenRegPackedMayMatch packedMayMatch = nullptr;
    GenRegPacksAlike packsAlike = nullptr;

    // Fills the three, each of which may be null. They speak for the functions that stand in the slots now: a function
    // that takes the place of one of those is asked itself, about every frame. So checkPacked is off with another
    // getPackedRecordSize, and asked only for an unpackRecord or packRecord that it speaks for; packedMayMatch is off
    // with another unpackRecord or matchRecord too, packsAlike with another of the three packing slots. A schema whose
    // unpackRecord hands on to the one that it replaced calls this again: the images are as little to be trusted as
    // before. The two that save calls are off while the library is traced.
    void useShortcuts(GenRegCheckPacked check, GenRegPackedMayMatch mayMatch, GenRegPacksAlike alike) noexcept;

private:
    friend class genreg::BinFrames;

    // The slots that the shortcuts speak for.
    GenRegMatchRecord judgedMatch_ = nullptr;
    GenRegPackRecord judgedPack_ = nullptr;
    GenRegUnpackRecord judgedUnpack_ = nullptr;
    GenRegGetPackedRecordSize judgedPackedSize_ = nullptr;
    GenRegGetMaxRecordSize judgedMaxSize_ = nullptr;
    const genreg::FrameWays* ways_ = nullptr;  // of the library's schemas; as bound as packedMayMatch
    void* room_[10] = {};                      // a private field more is a place less here
};
