// The sink writer: one stream of NV12 frames that the encoder server makes an H.264 stream in an MP4 file of. It checks
// what it is given as strictly as Windows, in places more so, and refuses every call while Media Foundation is shut
// down. For one thread.
//
// With the server it speaks as follows; each step is answered with an HRESULT, four bytes, little-endian.
//   the line     record TAB path of the file under Linux TAB output type TAB input type (DescribeType)
//   each sample  its time and its duration (-1: none) in 100 ns units, eight bytes each, and the frame
//   the end      eight bytes -1 and eight bytes 0; the answer comes when the file is complete
// A connection that ends before has the recording abandoned.
#pragma once

#include "tests/rig/recorder/encoder_link.h"

#include "platform/com_object.h"
#include "platform/com_ptr.h"
#include "platform/handles.h"

#include <mfidl.h>
#include <mfreadwrite.h>

#include <cstdint>
#include <string>

namespace rig {

class SinkWriter final : public receiver::ComObject<IMFSinkWriter, IID_IMFSinkWriter> {
public:
    // Makes the file, as Windows does: empty, and no other process can write to it before the writer is released.
    [[nodiscard]] static HRESULT Create(LPCWSTR path, IMFSinkWriter** writer);

    HRESULT STDMETHODCALLTYPE AddStream(IMFMediaType* type, DWORD* index) noexcept override;
    HRESULT STDMETHODCALLTYPE SetInputMediaType(DWORD index, IMFMediaType* type,
                                                IMFAttributes* parameters) noexcept override;
    HRESULT STDMETHODCALLTYPE BeginWriting() noexcept override;
    HRESULT STDMETHODCALLTYPE WriteSample(DWORD index, IMFSample* sample) noexcept override;
    HRESULT STDMETHODCALLTYPE Finalize() noexcept override;

    HRESULT STDMETHODCALLTYPE SendStreamTick(DWORD, LONGLONG) noexcept override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE PlaceMarker(DWORD, void*) noexcept override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NotifyEndOfSegment(DWORD) noexcept override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Flush(DWORD) noexcept override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetServiceForStream(DWORD, REFGUID, REFIID, void**) noexcept override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetStatistics(DWORD, MF_SINK_WRITER_STATISTICS*) noexcept override { return E_NOTIMPL; }

private:
    enum class State { Preparing, Writing, Finalized };

    [[nodiscard]] HRESULT SendSample(std::int64_t time, std::int64_t duration, IMFMediaBuffer* buffer);

    State state = State::Preparing;
    receiver::UniqueFile file;
    std::string unixPath;
    receiver::ComPtr<IMFMediaType> outputType;
    receiver::ComPtr<IMFMediaType> inputType;
    std::int64_t lastTime = -1; // 100 ns units; -1 before the first sample
    EncoderLink encoder;
};

} // namespace rig
