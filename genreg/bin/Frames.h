// The binary engine's view of a registry: frames in place, and the schema's functions over them.
#pragma once

#include <genreg/GenRegBin.h>

#include <cstddef>

#include "genreg/bin/FrameWays.h"
#include "genreg/core/FileInternals.h"
#include "genreg/core/FrameBytes.h"
#include "genreg/core/FunctionTrace.h"
#include "genreg/core/Identity.h"
#include "genreg/core/Input.h"
#include "genreg/core/RecordBuffer.h"

namespace genreg {

constexpr const char* BIN_TAG = "GenRegBin";  // for the platform's books of memory
constexpr unsigned long ANY_SIZE = ~0UL;      // of a record whose buffer is the caller's or the schema's to size

class BinFrames {
public:
    BinFrames(GenRegBin& engine, FunctionTrace& trace) noexcept : engine_(engine), trace_(trace) {}

    // 0; REG_NO_MORE_RECORDS, which is no failure; REG_FRAME_TRUNCATED; REG_FRAME_LENGTH_READ_FAILED;
    // REG_FRAME_PAYLOAD_READ_FAILED. Nothing is read or allocated for a length that the file cannot hold. The frame is
    // valid until the next one of the same input.
    [[nodiscard]] unsigned int next(Input& input, Frame* frame) noexcept;

    // For the schemas of the library; they speak for the functions that the shortcuts speak for.
    static void useWays(GenRegBin& engine, const FrameWays& ways) noexcept { engine.ways_ = &ways; }
    // Goes past whole frames that surely do not match the key under the mask, as many as are at hand.
    void passOver(Input& input, unsigned long mask, const void* key) const noexcept;
    // Moves on to the next record that matches the key, or to the next one where the key is null, and unpacks it to
    // where the caller has it; in a list, most of them match. False at a frame in doubt, which is the next one then,
    // and at the end.
    [[nodiscard]] bool take(Input& input, unsigned long mask, const void* key, void* record, bool lists) const noexcept;

    // Whether the key has an identity that speaks for the slots.
    [[nodiscard]] bool identify(unsigned long mask, const void* key, unsigned int* identity) const noexcept;
    // Goes past a frame without a word, all that is left where it is not whole, and tells its identity.
    // carried: a frame that would be carried otherwise than it stands is doubtful.
    [[nodiscard]] Place nextPlace(Input& input, unsigned int* identity, bool carried) const noexcept;

    // How many bytes at hand are whole frames that surely do not match the key and are carried as they stand; such that
    // are the same in both inputs and pass the check.
    [[nodiscard]] std::size_t carriedAtHand(const Input& input, unsigned long mask, const void* key) const noexcept;
    [[nodiscard]] std::size_t equalAtHand(const Input& a, const Input& b) const noexcept;
    // Carries so many bytes of them. REG_COPY_WRITE_FAILED.
    [[nodiscard]] unsigned int carryRun(const char* frames, std::size_t length) noexcept;

    // Refuses an image whose lengths lie; REG_UNPACK_FAILED.
    [[nodiscard]] unsigned int check(const Frame& frame) noexcept;
    // False when the record of the checked frame surely does not match, told without unpacking it.
    [[nodiscard]] bool mayMatch(unsigned long mask, const Frame& frame, const void* key) const noexcept;
    // The record of the checked frame into the buffer (GetMaxRecordSize bytes or more; replaced when the frame is
    // larger). REG_NO_UNPACK_RECORD, REG_UNPACK_FAILED, REG_READ_FAILED when there is no memory.
    [[nodiscard]] unsigned int unpack(const Frame& frame, RecordBuffer& record) noexcept;
    // Whether the two checked frames hold equal records for certain.
    [[nodiscard]] bool surelyEqual(const Frame& a, const Frame& b) const noexcept;

    // Whether matching is possible: REG_NO_MATCH_RECORD.
    [[nodiscard]] unsigned int checkMatch() noexcept;
    [[nodiscard]] unsigned int match(unsigned long mask, void* record, void* key) const noexcept {
        return engine_.matchRecord(mask, record, key);
    }

    // Packs a record, with the image of the checked frame as the previous one when there is one, and writes it; the
    // buffer is used up. REG_NO_PACK_RECORD, REG_PACK_FAILED, REG_NO_RECORD_BUFFER, else as below.
    [[nodiscard]] unsigned int packAndWrite(RecordBuffer& record, const Frame* previous, unsigned int writeFailed,
                                            bool inPlace) noexcept;
    // Writes a record (packed already where packing is on) at the size that the schema tells for it; one that would
    // reach beyond the room is refused. In place: in one write to the registry file. Any failure is the code for a
    // failed write.
    [[nodiscard]] unsigned int write(void* record, unsigned long room, unsigned int writeFailed, bool inPlace) noexcept;
    // Whether the bytes of the checked frame are what unpacking and packing it would write.
    [[nodiscard]] bool isCarriedAlike(const Frame& frame) const noexcept;
    // Writes the checked frame's record again: as bytes where that is what unpacking and packing would write. The
    // buffer is for the other case; unpacked tells that it holds the frame's record already.
    [[nodiscard]] unsigned int carry(const Frame& frame, RecordBuffer& record, bool unpacked) noexcept;

    [[nodiscard]] bool has(unsigned long feature) const noexcept { return (engine_.features & feature) != 0; }
    [[nodiscard]] unsigned long maxRecordSize() const noexcept;
    [[nodiscard]] std::FILE* registry() const noexcept { return engine_.regFp; }
    [[nodiscard]] Output& copy() const noexcept { return FileInternals::of(engine_).output(); }

    // The bytes that a frame of this (packed) record holds: REG_NO_GET_PACKED_RECORD_SIZE, REG_NO_GET_RECORD_SIZE.
    [[nodiscard]] unsigned int payloadSize(void* record, unsigned long* size) noexcept;

private:
    // Whether the schema's shortcuts speak for what stands in the slots: for the extent of images, for unpacking, for
    // matching what was unpacked, for packing. The calls that the third saves are not saved while they are traced.
    [[nodiscard]] bool checksImages() const noexcept;
    [[nodiscard]] bool unpacksChecked() const noexcept;
    [[nodiscard]] bool matchesChecked() const noexcept;
    [[nodiscard]] bool packsChecked() const noexcept;
    [[nodiscard]] bool usesWays() const noexcept;
    [[nodiscard]] bool peek(Input& input, Frame* frame) const noexcept;
    [[nodiscard]] unsigned int carryFailed() noexcept;
    [[nodiscard]] unsigned int checkImage(const Frame& frame) noexcept;
    [[nodiscard]] unsigned int previousImage(const Frame* previous, void** image) noexcept;
    [[nodiscard]] bool writeBytes(const void* payload, unsigned long size, bool inPlace) noexcept;

    GenRegBin& engine_;
    FunctionTrace& trace_;
    RecordBuffer previous_{BIN_TAG};
};

}  // namespace genreg
