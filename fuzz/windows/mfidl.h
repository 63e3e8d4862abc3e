// The methods of Media Foundation that the recorder and the fake sink writer use; of the sink writer, which is faked,
// all.
#pragma once

#include <windows.h>

inline constexpr GUID MF_MT_MAJOR_TYPE{3, 0, 0, {}};
inline constexpr GUID MF_MT_SUBTYPE{3, 1, 0, {}};
inline constexpr GUID MF_MT_AVG_BITRATE{3, 2, 0, {}};
inline constexpr GUID MF_MT_INTERLACE_MODE{3, 3, 0, {}};
inline constexpr GUID MF_MT_FRAME_SIZE{3, 4, 0, {}};
inline constexpr GUID MF_MT_FRAME_RATE{3, 5, 0, {}};
inline constexpr GUID MF_MT_PIXEL_ASPECT_RATIO{3, 6, 0, {}};
inline constexpr GUID MFMediaType_Video{4, 0, 0, {}};
inline constexpr GUID MFVideoFormat_H264{4, 1, 0, {}};
inline constexpr GUID MFVideoFormat_NV12{4, 2, 0, {}};
inline constexpr std::uint32_t MFVideoInterlace_Progressive = 2;
inline constexpr ULONG MF_VERSION = 0x00020070;
inline constexpr DWORD MFSTARTUP_FULL = 0;
inline constexpr HRESULT MF_E_SHUTDOWN = static_cast<HRESULT>(0xC00D3E85);

struct IMFAttributes;
struct MF_SINK_WRITER_STATISTICS;

struct IMFMediaType : IUnknown {
    virtual HRESULT SetGUID(REFGUID key, REFGUID value) = 0;
    virtual HRESULT SetUINT32(REFGUID key, std::uint32_t value) = 0;
    virtual HRESULT SetUINT64(REFGUID key, std::uint64_t value) = 0;
};
struct IMFMediaBuffer : IUnknown {
    virtual HRESULT Lock(BYTE** bytes, DWORD* maxLength, DWORD* currentLength) = 0;
    virtual HRESULT Unlock() = 0;
    virtual HRESULT SetCurrentLength(DWORD length) = 0;
};
struct IMFSample : IUnknown {
    virtual HRESULT AddBuffer(IMFMediaBuffer* buffer) = 0;
    virtual HRESULT SetSampleTime(LONGLONG time) = 0;
    virtual HRESULT SetSampleDuration(LONGLONG duration) = 0;
    virtual HRESULT GetSampleTime(LONGLONG* time) = 0;
    virtual HRESULT GetSampleDuration(LONGLONG* duration) = 0;
    virtual HRESULT GetBufferCount(DWORD* count) = 0;
    virtual HRESULT GetBufferByIndex(DWORD index, IMFMediaBuffer** buffer) = 0;
};
struct IMFSinkWriter : IUnknown {
    virtual HRESULT AddStream(IMFMediaType* type, DWORD* index) = 0;
    virtual HRESULT SetInputMediaType(DWORD index, IMFMediaType* type, IMFAttributes* parameters) = 0;
    virtual HRESULT BeginWriting() = 0;
    virtual HRESULT WriteSample(DWORD index, IMFSample* sample) = 0;
    virtual HRESULT SendStreamTick(DWORD index, LONGLONG time) = 0;
    virtual HRESULT PlaceMarker(DWORD index, void* context) = 0;
    virtual HRESULT NotifyEndOfSegment(DWORD index) = 0;
    virtual HRESULT Flush(DWORD index) = 0;
    virtual HRESULT Finalize() = 0;
    virtual HRESULT GetServiceForStream(DWORD index, REFGUID service, REFIID id, void** object) = 0;
    virtual HRESULT GetStatistics(DWORD index, MF_SINK_WRITER_STATISTICS* statistics) = 0;
};

constexpr DWORD MFASYNC_CALLBACK_QUEUE_STANDARD = 1;

HRESULT MFStartup(ULONG version, DWORD flags) noexcept;
HRESULT MFShutdown() noexcept;
HRESULT MFAllocateSerialWorkQueue(DWORD target, DWORD* queue) noexcept;
HRESULT MFUnlockWorkQueue(DWORD queue) noexcept;
HRESULT MFCreateMediaType(IMFMediaType** type);
HRESULT MFCreateMemoryBuffer(DWORD size, IMFMediaBuffer** buffer);
HRESULT MFCreateSample(IMFSample** sample);
HRESULT MFCreateSinkWriterFromURL(LPCWSTR path, void* stream, IMFAttributes* attributes, IMFSinkWriter** writer);
