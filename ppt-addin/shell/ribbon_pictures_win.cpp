// The ribbon's pictures: PNG resources decoded through WIC, icon resources
// drawn into a 32-bit bitmap, each handed to the host as an OLE picture and
// kept for the life of the process, since the host asks again after every
// Invalidate.
#include <windows.h>

#include <ole2.h>
#include <olectl.h>
#include <wincodec.h>

#include <cstring>

#include "foundation/com_win.h"
#include "shell/connect_win.h"

namespace qb::shell {

namespace {

// {CACAF262-9370-4615-A13B-9F5539DA4C0A}
constexpr CLSID kWicImagingFactory = {
    0xCACAF262, 0x9370, 0x4615, {0xA1, 0x3B, 0x9F, 0x55, 0x39, 0xDA, 0x4C, 0x0A}};

struct CacheSlot {
    int id = 0;
    int size = 0;
    IDispatch* picture = nullptr;  // held for the process's life
};

// Sixteen slots a kind; when full, a new picture is handed out uncached.
template <std::size_t N = 16>
struct PictureCache {
    CacheSlot slots[N];
    IDispatch* Find(int id, int size) {
        for (CacheSlot& slot : slots) {
            if (slot.picture && slot.id == id && slot.size == size) {
                slot.picture->AddRef();
                return slot.picture;
            }
        }
        return nullptr;
    }
    void Store(int id, int size, IDispatch* picture) {
        for (CacheSlot& slot : slots) {
            if (!slot.picture) {
                picture->AddRef();
                slot = CacheSlot{id, size, picture};
                return;
            }
        }
    }
};

PictureCache<>& PngCache() {
    static PictureCache<> cache;
    return cache;
}
PictureCache<>& IconCache() {
    static PictureCache<> cache;
    return cache;
}

HBITMAP TopDownDib(int width, int height, void** bits) {
    BITMAPINFO info{};
    info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.bmiHeader.biWidth = width;
    info.bmiHeader.biHeight = -height;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    return ::CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, bits, nullptr, 0);
}

// The picture owns the bitmap from here on, or the bitmap is freed.
IDispatch* PictureOf(HBITMAP bitmap) {
    PICTDESC desc{};
    desc.cbSizeofstruct = sizeof desc;
    desc.picType = PICTYPE_BITMAP;
    desc.bmp.hbitmap = bitmap;
    IDispatch* picture = nullptr;
    if (FAILED(::OleCreatePictureIndirect(&desc, IID_IDispatch, TRUE,
                                          reinterpret_cast<void**>(&picture)))) {
        ::DeleteObject(bitmap);
        return nullptr;
    }
    return picture;
}

HBITMAP DecodePng(const void* data, DWORD size) {
    HGLOBAL block = ::GlobalAlloc(GMEM_MOVEABLE, size);
    if (!block) return nullptr;
    if (void* p = ::GlobalLock(block)) {
        std::memcpy(p, data, size);
        ::GlobalUnlock(block);
    }
    ComPtr<IStream> stream;
    if (FAILED(::CreateStreamOnHGlobal(block, TRUE, &stream))) {
        ::GlobalFree(block);
        return nullptr;
    }
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICFormatConverter> converter;
    UINT width = 0, height = 0;
    if (FAILED(::CoCreateInstance(kWicImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IWICImagingFactory, &factory)) ||
        FAILED(factory->CreateDecoderFromStream(stream.Get(), nullptr,
                                                WICDecodeMetadataCacheOnDemand, &decoder)) ||
        FAILED(decoder->GetFrame(0, &frame)) ||
        FAILED(factory->CreateFormatConverter(&converter)) ||
        FAILED(converter->Initialize(frame.Get(), GUID_WICPixelFormat32bppPBGRA,
                                     WICBitmapDitherTypeNone, nullptr, 0.0,
                                     WICBitmapPaletteTypeCustom)) ||
        FAILED(converter->GetSize(&width, &height)) || width == 0 || height == 0) {
        return nullptr;
    }
    void* bits = nullptr;
    HBITMAP bitmap = TopDownDib(static_cast<int>(width), static_cast<int>(height), &bits);
    if (!bitmap) return nullptr;
    const UINT stride = width * 4;
    if (FAILED(converter->CopyPixels(nullptr, stride, stride * height, static_cast<BYTE*>(bits)))) {
        ::DeleteObject(bitmap);
        return nullptr;
    }
    return bitmap;
}

}  // namespace

IDispatch* LoadPngPicture(int id) {
    if (id == 0) return nullptr;
    if (IDispatch* cached = PngCache().Find(id, 0)) return cached;
    const void* data = nullptr;
    DWORD size = 0;
    if (!LoadModuleResource(MAKEINTRESOURCEW(10) /* RT_RCDATA */, id, data, size)) return nullptr;
    HBITMAP bitmap = DecodePng(data, size);
    IDispatch* picture = bitmap ? PictureOf(bitmap) : nullptr;
    if (picture) PngCache().Store(id, 0, picture);
    return picture;
}

IDispatch* LoadIconPicture(int id, int size) {
    if (IDispatch* cached = IconCache().Find(id, size)) return cached;
    HICON icon = static_cast<HICON>(::LoadImageW(ModuleInstance(), MAKEINTRESOURCEW(id), IMAGE_ICON,
                                                 size, size, LR_DEFAULTCOLOR));
    if (!icon) return nullptr;
    void* bits = nullptr;
    HBITMAP bitmap = TopDownDib(size, size, &bits);
    if (bitmap) {
        std::memset(bits, 0, static_cast<std::size_t>(size) * size * 4);
        HDC dc = ::CreateCompatibleDC(nullptr);
        HGDIOBJ old = ::SelectObject(dc, bitmap);
        ::DrawIconEx(dc, 0, 0, icon, size, size, 0, nullptr, DI_NORMAL);
        ::SelectObject(dc, old);
        ::DeleteDC(dc);
    }
    ::DestroyIcon(icon);
    IDispatch* picture = bitmap ? PictureOf(bitmap) : nullptr;
    if (picture) IconCache().Store(id, size, picture);
    return picture;
}

}  // namespace qb::shell
