// A registry in memory: what it is made of, and its frames.
#include <genreg/RegistryBytes.h>

#include "genreg/core/ChecksumHeader.h"
#include "genreg/core/FrameBytes.h"
#include "genreg/global/PackedImage.h"

using genreg::bodyChecksum;
using genreg::CHECKSUM_HEADER_SIZE;
using genreg::Frame;
using genreg::FRAME_LENGTH_SIZE;
using genreg::HeaderFit;
using genreg::IMAGE_TYPE_SIZE;
using genreg::judgeHeader;
using genreg::loadLittle;
using genreg::parsesAsFrames;
using genreg::recordTypeOf;

namespace {

// Whether the bytes, which are damaged somewhere, begin with a frame of the global registry.
bool beginsAsRecord(const char* bytes) noexcept {
    const auto* const image = reinterpret_cast<const unsigned char*>(bytes) + FRAME_LENGTH_SIZE;
    return recordTypeOf(static_cast<unsigned int>(loadLittle(image, IMAGE_TYPE_SIZE))) != nullptr;
}

HeaderFit judgeLayout(const char* bytes, unsigned long size) noexcept {
    const HeaderFit fit = judgeHeader(bytes, size);
    const bool frames = fit == HeaderFit::Misfits && (parsesAsFrames(false, bytes, size, 0) ||
                                                      parsesAsFrames(true, bytes, size, 0) || beginsAsRecord(bytes));
    return frames ? HeaderFit::None : fit;
}

bool isBigEndian(const char* bytes, unsigned long size, unsigned long records) noexcept {
    if (parsesAsFrames(false, bytes, size, records)) {
        return false;
    }
    Frame first;
    return parsesAsFrames(true, bytes, size, records) ||
           (!frameAt(false, bytes, size, records, &first) && frameAt(true, bytes, size, records, &first));
}

}  // namespace

unsigned int genregReadLayout(const void* bytes, unsigned long size, GenRegLayout* layout) {
    if (layout == nullptr) {
        return REG_NULL_POINTER;
    }
    *layout = {};
    if (bytes == nullptr) {
        return 0;
    }
    const auto* const content = static_cast<const char*>(bytes);
    const HeaderFit fit = judgeLayout(content, size);
    if (fit != HeaderFit::None) {
        *layout = {REG_FEATURE_CHECKSUM_HEADER, CHECKSUM_HEADER_SIZE, content,
                   static_cast<int>(bodyChecksum(content, size))};
    }
    if (isBigEndian(content, size, layout->records)) {
        layout->features |= REG_FEATURE_BIG_ENDIAN;
    }
    return fit == HeaderFit::Misfits ? static_cast<unsigned int>(REG_CHECKSUM_DIFFERS) : 0U;
}

unsigned int genregReadFrame(const void* bytes, unsigned long size, unsigned long features, unsigned long offset,
                             GenRegFrame* frame) {
    if (frame == nullptr) {
        return REG_NULL_POINTER;
    }
    const unsigned long there = bytes == nullptr ? 0 : size;
    Frame found;
    const bool whole =
        frameAt((features & REG_FEATURE_BIG_ENDIAN) != 0, static_cast<const char*>(bytes), there, offset, &found);
    *frame = {whole ? found.payload : nullptr, found.length, whole ? offset + FRAME_LENGTH_SIZE + found.length : there};
    return whole             ? 0U
           : offset == there ? static_cast<unsigned int>(REG_NO_MORE_RECORDS)
                             : static_cast<unsigned int>(REG_FRAME_TRUNCATED);
}
