#include "effects/wave_file.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <new>
#include <vector>

#include "base/xp_output_file.h"
#include "effects/effect_chain.h"
#include "effects/wave_header.h"

namespace tarn {
namespace {

constexpr size_t kLongestTarget = 256;  // characters
constexpr uint32_t kBlockSize = 1048576;
constexpr uint64_t kSizeLimit = uint64_t{1} << 32;
constexpr uint32_t kDataHead = 8;
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

// One rewriting, from open to commit.
class WaveJob {
public:
    WaveJob(const AMPEffectSettings& settings, const AMPEffectProgressCallback& callback)
        : m_settings(settings), m_callback(callback) {}

    int Run(const std::string& target, const std::string& source, uint32_t start_ms,
            uint32_t end_ms, bool replace);
    const AMPWaveFailure& Failure() const { return m_failure; }

private:
    int ChooseRange(uint32_t start_ms, uint32_t end_ms);
    int WriteHeader();
    int TreatSound();
    int TreatBlock(int16_t* block, uint32_t size, uint32_t position);

    int Fail(int result, AMPWaveFault fault) {
        m_failure = {fault, 0};
        return result;
    }
    int FailSystem(int result, int error) {
        m_failure = {AMPWaveFault::kSystem, error};
        return result;
    }

    const AMPEffectSettings& m_settings;
    const AMPEffectProgressCallback& m_callback;
    AMPWaveFailure m_failure;
    XpFile m_source;
    XpOutputFile m_output;
    AMPEffectChainPtr m_chain;
    WaveHeader m_header{};
    uint64_t m_skip = 0, m_frames = 0;  // frames before the range, and in it
};

int WaveJob::Run(const std::string& target, const std::string& source, uint32_t start_ms,
                 uint32_t end_ms, bool replace) {
    if (characters(target) > kLongestTarget) return Fail(kWaveWriteFailed, AMPWaveFault::kLongName);
    if (const int result = AMPOpenWaveFile(source, &m_source, &m_header, &m_failure);
        result != kWaveDone)
        return result;
    if (const int result = ChooseRange(start_ms, end_ms); result != kWaveDone) return result;
    if (same_file(m_source, target)) return Fail(kWaveWriteFailed, AMPWaveFault::kSameFile);

    using Existing = XpOutputFile::Existing;
    int error =
        m_output.Create(target, replace ? Existing::kReplace : Existing::kRefuse, kTemporarySuffix);
    if (error != 0) return FailSystem(kWaveWriteFailed, error);
    if (const int result = WriteHeader(); result != kWaveDone) return result;
    if (const int result = TreatSound(); result != kWaveDone) return result;
    error = m_output.Commit();
    return error == 0 ? kWaveDone : FailSystem(kWaveWriteFailed, error);
}

int WaveJob::ChooseRange(uint32_t start_ms, uint32_t end_ms) {
    const uint64_t rate = m_header.sample_rate;
    const uint64_t available = m_header.data_size / kWaveFrameSize;
    m_skip = start_ms * rate / 1000;
    if (m_skip > 0 && m_skip >= available) return Fail(kWaveReadFailed, AMPWaveFault::kRange);
    if (end_ms == 0) {
        m_frames = available - m_skip;
    } else {
        if (end_ms < start_ms) return Fail(kWaveReadFailed, AMPWaveFault::kRange);
        m_frames = (end_ms - start_ms) * rate / 1000;
    }
    if (m_frames > available - m_skip) return Fail(kWaveReadFailed, AMPWaveFault::kRange);
    if ((m_skip + m_frames) * kWaveFrameSize > m_header.data_available)
        return Fail(kWaveReadFailed, AMPWaveFault::kCutShort);

    m_chain.reset(AMPEffectCreate(m_header.sample_rate));
    if (!m_chain || !AMPEffectSetParameters(m_chain.get(), m_settings)) throw std::bad_alloc();
    AMPEffectSetRange(m_chain.get(), 0, static_cast<uint32_t>(m_frames * 1000 / rate));
    return kWaveDone;
}

// The source's own head, with its RIFF size even where the sound gets shorter, and the sound's.
int WaveJob::WriteHeader() {
    std::array<uint8_t, sizeof m_header.head + kDataHead> bytes;
    uint8_t* const data =
        std::copy(std::begin(m_header.head), std::end(m_header.head), bytes.data());
    const auto size = static_cast<uint32_t>(m_frames * kWaveFrameSize);
    std::copy_n("data", 4, data);
    for (int i = 0; i < 4; ++i)
        data[4 + i] = static_cast<uint8_t>(size >> (8 * i));
    uint64_t done = 0;
    const int error = m_output.File().Write(bytes.data(), bytes.size(), &done);
    return error == 0 ? kWaveDone : FailSystem(kWaveWriteFailed, error);
}

int WaveJob::TreatSound() {
    const int error =
        m_source.Seek(static_cast<int64_t>(m_header.data_offset + m_skip * kWaveFrameSize),
                      XpFile::Origin::kStart);
    if (error != 0) return FailSystem(kWaveReadFailed, error);

    const uint64_t total = m_frames * kWaveFrameSize;
    const auto blocks = static_cast<uint32_t>(total / kBlockSize + 1);
    std::vector<int16_t> buffer(std::min<uint64_t>(total, kBlockSize) / sizeof(int16_t));
    uint32_t position = 0, block = 1;
    for (uint64_t left = total; left > 0; ++block) {
        if (m_callback && !m_callback(block, blocks)) {
            m_failure = {};
            return kWaveCancelled;
        }
        const auto size = static_cast<uint32_t>(std::min<uint64_t>(left, kBlockSize));
        if (const int result = TreatBlock(buffer.data(), size, position); result != kWaveDone)
            return result;
        // The rounding of each block adds up; intended.
        position += static_cast<uint32_t>(size / kWaveFrameSize) * 1000 / m_header.sample_rate;
        left -= size;
    }
    return kWaveDone;
}

int WaveJob::TreatBlock(int16_t* block, uint32_t size, uint32_t position) {
    uint64_t done = 0;
    int error = m_source.Read(block, size, &done);
    if (error != 0) return FailSystem(kWaveReadFailed, error);
    if (done < size) return Fail(kWaveReadFailed, AMPWaveFault::kCutShort);
    AMPEffectProcess(m_chain.get(), block, block, size / kWaveFrameSize, position);
    error = m_output.File().Write(block, size, &done);
    return error == 0 ? kWaveDone : FailSystem(kWaveWriteFailed, error);
}

AMPWaveFault fault_of(WaveHeaderFault fault) {
    switch (fault) {
        case WaveHeaderFault::kNone:
            return AMPWaveFault::kNone;
        case WaveHeaderFault::kRead:
            return AMPWaveFault::kSystem;
        case WaveHeaderFault::kFormat:
            return AMPWaveFault::kFormat;
        case WaveHeaderFault::kNoData:
            break;
    }
    return AMPWaveFault::kNoData;
}

}  // namespace

int AMPOpenWaveFile(const std::string& path, XpFile* file, WaveHeader* header,
                    AMPWaveFailure* failure) {
    int error = file->Open(path, XpFile::Mode::kRead);
    *failure = {AMPWaveFault::kSystem, error};
    if (error != 0) return kWaveSourceFailed;

    AMPWaveFault fault = fault_of(ReadWaveHeader(file, header, &error));
    uint64_t length = 0;
    if (fault == AMPWaveFault::kNone) {
        error = file->GetLength(&length);
        if (error != 0)
            fault = AMPWaveFault::kSystem;
        else if (length >= kSizeLimit)
            fault = AMPWaveFault::kTooLarge;
        else if (header->sample_rate < kMinSampleRate || header->sample_rate > kMaxSampleRate)
            fault = AMPWaveFault::kRate;
    }
    *failure = {fault, error};
    return fault == AMPWaveFault::kNone ? kWaveDone : kWaveReadFailed;
}

int AMPEffectProcessWaveFile(const std::string& target, const std::string& source,
                             const AMPEffectSettings& settings, uint32_t start_ms, uint32_t end_ms,
                             const AMPEffectProgressCallback& callback,
                             const AMPWaveOptions& options) {
    WaveJob job(settings, callback);
    AMPWaveFailure failure;
    int result;
    try {
        result = job.Run(target, source, start_ms, end_ms, options.replace_target);
        failure = job.Failure();
    } catch (const std::bad_alloc&) {
        result = kWaveNoMemory;
        failure = {AMPWaveFault::kSystem, ENOMEM};
    }
    if (options.failure) *options.failure = result == kWaveDone ? AMPWaveFailure{} : failure;
    return result;
}

}  // namespace tarn
