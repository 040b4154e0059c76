#include "effects/wave_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <new>
#include <vector>

#include "base/xp_output_file.h"
#include "effects/effect_chain.h"
#include "effects/wave_header.h"

namespace tarn {
namespace {

using enum ReasonCode;

constexpr size_t kLongestTarget = 256;  // characters
constexpr uint32_t kBlockSize = 1048576;
constexpr uint64_t kSizeLimit = uint64_t{1} << 32;
static_assert(std::endian::native == std::endian::little, "samples are read as they stand");
constexpr char kTemporarySuffix[] = ".$$$";

size_t characters(const std::string& utf8) {
    return static_cast<size_t>(std::count_if(
        utf8.begin(), utf8.end(), [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

bool same_file(const XpFile& source, const std::string& target) {
    struct stat a {
    }, b{};
    return fstat(source.Descriptor(), &a) == 0 && stat(target.c_str(), &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// One rewriting of an open source, up to the commit.
class WaveJob {
public:
    WaveJob(AMPWaveSource* source, const AMPWaveRewrite& job,
            const AMPEffectProgressCallback& callback)
        : m_job(job),
          m_callback(callback),
          m_source(source->file),
          m_header(source->header),
          m_path(source->path) {}
    Reason Run();
    uint64_t Frames() const { return m_frames; }

private:
    Reason ChooseRange();
    Reason WriteHeader();
    Reason TreatSound();
    Reason TreatBlock(int16_t* block, uint32_t size, uint32_t position);

    Reason Source(ReasonCode code) const { return {code, ReasonSide::kSource, m_path, {}}; }
    Reason Target(ReasonCode code) const { return {code, ReasonSide::kTarget, m_job.target, {}}; }
    // 0 is no failure.
    Reason CheckRead(int error) const {
        if (error == 0) return {};
        return SystemReason(kCantRead, ReasonSide::kSource, m_path, error);
    }
    Reason CheckWritten(int error) const {
        if (error == 0) return {};
        return SystemReason(kCantWrite, ReasonSide::kTarget, m_job.target, error);
    }

    const AMPWaveRewrite& m_job;
    const AMPEffectProgressCallback& m_callback;
    XpFile& m_source;
    const WaveHeader& m_header;
    const std::string& m_path;
    XpOutputFile m_output;
    AMPEffectChainPtr m_chain;
    uint64_t m_skip = 0, m_frames = 0;  // frames before the range, and in it
};

Reason WaveJob::Run() {
    if (characters(m_job.target) > kLongestTarget)
        return {kLongPath, ReasonSide::kTarget, m_job.target, {uint64_t{kLongestTarget}}};
    if (Reason reason = ChooseRange()) return reason;
    if (same_file(m_source, m_job.target)) return Target(kSameFile);

    using Existing = XpOutputFile::Existing;
    const auto existing = m_job.replace_target ? Existing::kReplace : Existing::kRefuse;
    if (Reason reason = CheckWritten(m_output.Create(m_job.target, existing, kTemporarySuffix)))
        return reason;
    if (Reason reason = WriteHeader()) return reason;
    if (Reason reason = TreatSound()) return reason;
    return CheckWritten(m_output.Commit());
}

Reason WaveJob::ChooseRange() {
    const uint64_t rate = m_header.sample_rate, start = m_job.start_ms, end = m_job.end_ms;
    const uint64_t available = m_header.Frames();
    m_skip = start * rate / 1000;
    if (m_skip > 0 && m_skip >= available) return Source(kWaveRange);
    if (end != 0 && end < start) return Source(kWaveRange);
    m_frames = end == 0 ? available - m_skip : (end - start) * rate / 1000;
    if (m_frames > available - m_skip) return Source(kWaveRange);

    m_chain.reset(AMPEffectCreate(m_header.sample_rate));
    if (!m_chain || !AMPEffectSetParameters(m_chain.get(), m_job.settings)) throw std::bad_alloc();
    AMPEffectSetRange(m_chain.get(), 0, static_cast<uint32_t>(m_frames * 1000 / rate));
    return {};
}

// The source's own head, with its RIFF size even where the sound gets shorter, and the sound's.
Reason WaveJob::WriteHeader() {
    const WaveStart bytes =
        MakeWaveStart(m_header.head, static_cast<uint32_t>(m_frames * kWaveFrameSize));
    uint64_t done = 0;
    return CheckWritten(m_output.File().Write(bytes.data(), bytes.size(), &done));
}

Reason WaveJob::TreatSound() {
    const auto first = static_cast<int64_t>(m_header.data_offset + m_skip * kWaveFrameSize);
    if (Reason reason = CheckRead(m_source.Seek(first, XpFile::Origin::kStart))) return reason;

    const uint64_t total = m_frames * kWaveFrameSize;
    const auto blocks = static_cast<uint32_t>(total / kBlockSize + 1);
    std::vector<int16_t> buffer(std::min<uint64_t>(total, kBlockSize) / sizeof(int16_t));
    uint32_t position = 0, block = 1;
    for (uint64_t left = total; left > 0; ++block) {
        if (m_callback && !m_callback(block, blocks))
            return {kCancelled, ReasonSide::kNone, m_job.target, {}};
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(left, kBlockSize));
        if (Reason reason = TreatBlock(buffer.data(), size, position)) return reason;
        // The rounding of each block adds up; intended.
        position += static_cast<uint32_t>(size / kWaveFrameSize) * 1000 / m_header.sample_rate;
        left -= size;
    }
    return {};
}

Reason WaveJob::TreatBlock(int16_t* block, uint32_t size, uint32_t position) {
    uint64_t done = 0;
    if (Reason reason = CheckRead(m_source.Read(block, size, &done))) return reason;
    if (done < size || !m_source.IsUnchanged()) return Source(kChanged);
    AMPEffectProcess(m_chain.get(), block, block, size / kWaveFrameSize, position);
    return CheckWritten(m_output.File().Write(block, size, &done));
}

AMPWaveResult result_of(const Reason& reason) {
    if (!reason) return kWaveDone;
    if (reason.code == kOutOfMemory) return kWaveNoMemory;
    if (reason.code == kCancelled) return kWaveCancelled;
    if (reason.side == ReasonSide::kTarget) return kWaveWriteFailed;
    return reason.code == kCantOpen || reason.code == kNotAFile ? kWaveSourceFailed
                                                                : kWaveReadFailed;
}

}  // namespace

Reason AMPOpenWaveSource(const std::string& path, AMPWaveSource* source) {
    source->path = path;
    if (const int error = source->file.Open(path, XpFile::Mode::kRead))
        return SystemReason(kCantOpen, ReasonSide::kSource, path, error);
    return AMPReadWaveSource(source);
}

Reason AMPReadWaveSource(AMPWaveSource* source) {
    Reason reason = ReadWaveHeader(&source->file, &source->header);
    reason.file = source->path;
    if (reason) return reason;
    uint64_t length = 0;
    if (const int error = source->file.GetLength(&length))
        return SystemReason(kCantRead, ReasonSide::kSource, source->path, error);
    if (length >= kSizeLimit) return {kWaveTooLarge, ReasonSide::kSource, source->path, {}};
    return {};
}

Reason AMPRewriteWaveFile(AMPWaveSource* source, const AMPWaveRewrite& job,
                          const AMPEffectProgressCallback& callback, uint64_t* frames) {
    try {
        WaveJob work(source, job, callback);
        Reason reason = work.Run();
        if (frames) *frames = work.Frames();
        return reason;
    } catch (const std::bad_alloc&) {
        return {kOutOfMemory, ReasonSide::kNone, source->path, {}};
    }
}

int AMPEffectProcessWaveFile(const std::string& target, const std::string& source,
                             const AMPEffectSettings& settings, uint32_t start_ms, uint32_t end_ms,
                             const AMPEffectProgressCallback& callback) {
    AMPWaveSource opened;
    Reason reason = AMPOpenWaveSource(source, &opened);
    if (!reason)
        reason = AMPRewriteWaveFile(&opened, {target, settings, start_ms, end_ms}, callback);
    return result_of(reason);
}

}  // namespace tarn
