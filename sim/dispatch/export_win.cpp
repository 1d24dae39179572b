// The exported IDispatch over a portable host object: stable dispids per
// name, arguments and results converted with the adapter's own VARIANT
// conversions, and one wrapper per object identity while it is held.
#include "sim/dispatch/export_win.h"

#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/char_class.h"
#include "foundation/com_win.h"
#include "foundation/wide_win.h"
#include "slides/host_iids_win.h"

namespace qb::sim {
namespace {

using host::HostRef;
using host::Variant;

// Asked of an IDispatch to learn whether it is one of ours, and which object
// it carries. Private to this file: no host answers it.
constexpr IID kExportedObjectIid = {
    0xd0274d50, 0x70a2, 0x44eb, {0x8d, 0x90, 0x82, 0x71, 0xc6, 0x43, 0xd8, 0x7e}};

HRESULT ExportOwn(const HostRef& object, IDispatch** out);
HostRef ImportOwn(IDispatch* dispatch);

// Arguments that are our own exports come back as the objects they carry.
const host::DispatchBridge kExportSide{&ExportOwn, &ImportOwn};
// An adapter made by a driver over one of our exports exports what it passes.
const host::DispatchBridge kDriverSide{&ExportOwn, nullptr};

// One dispid per name for the whole process, as GetIDsOfNames compares names
// without case. Members are only known when called (see Invoke), so every
// name gets an id; the id keeps the spelling it was first asked for.
class NameTable {
  public:
    DISPID IdOf(std::u16string_view name) {
        std::u16string key = ToLower(name);
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = ids_.find(key);
        if (found != ids_.end()) return found->second;
        names_.emplace_back(name);
        const auto id = static_cast<DISPID>(names_.size());  // from 1: 0 is the default member
        ids_.emplace(std::move(key), id);
        return id;
    }
    bool NameOf(DISPID id, std::u16string& out) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (id < 1 || static_cast<std::size_t>(id) > names_.size()) return false;
        out = names_[static_cast<std::size_t>(id) - 1];
        return true;
    }

  private:
    std::mutex mutex_;
    std::unordered_map<std::u16string, DISPID> ids_;
    std::vector<std::u16string> names_;
};

NameTable& Names() {
    static NameTable table;
    return table;
}

class ExportedObject;

// The live wrappers by their object's identity: the same object exported
// twice gives the same IUnknown, as COM's identity rule wants.
std::mutex g_liveMutex;
std::unordered_map<const void*, ExportedObject*> g_live;

class ExportedObject final : public IDispatch {
  public:
    ExportedObject(HostRef object, const void* identity)
        : object_(std::move(object)), identity_(identity) {}
    ExportedObject(const ExportedObject&) = delete;
    ExportedObject& operator=(const ExportedObject&) = delete;

    const HostRef& Object() const { return object_; }

    // A reference taken from the table of live wrappers: it fails for a
    // wrapper whose count already reached zero and which is on its way out.
    bool TryAddRef() {
        LONG count = ::InterlockedCompareExchange(&refs_, 0, 0);
        while (count != 0) {
            const LONG seen = ::InterlockedCompareExchange(&refs_, count + 1, count);
            if (seen == count) return true;
            count = seen;
        }
        return false;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        try {
            if (!Answers(riid)) return E_NOINTERFACE;
        } catch (...) {
            return E_NOINTERFACE;
        }
        *out = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override {
        return static_cast<ULONG>(::InterlockedIncrement(&refs_));
    }

    ULONG STDMETHODCALLTYPE Release() override {
        const LONG count = ::InterlockedDecrement(&refs_);
        if (count == 0) delete this;
        return static_cast<ULONG>(count);
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
        if (info) *info = nullptr;
        return DISP_E_BADINDEX;
    }

    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID riid, LPOLESTR* names, UINT count, LCID,
                                            DISPID* ids) override {
        try {
            if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
            if (!names || !ids) return E_POINTER;
            if (count == 0 || !names[0]) return E_INVALIDARG;
            ids[0] = Names().IdOf(FromWide(names[0]));
            // The seam has no named parameters.
            for (UINT i = 1; i < count; ++i)
                ids[i] = DISPID_UNKNOWN;
            return count == 1 ? S_OK : DISP_E_UNKNOWNNAME;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }

    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID riid, LCID, WORD flags, DISPPARAMS* params,
                                     VARIANT* result, EXCEPINFO* exception,
                                     UINT* argError) override {
        try {
            if (exception) *exception = EXCEPINFO{};
            if (riid != IID_NULL) return DISP_E_UNKNOWNINTERFACE;
            if (!params || (params->cArgs > 0 && !params->rgvarg)) return E_INVALIDARG;
            return Call(id, flags, *params, result, argError);
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        } catch (...) {
            return E_FAIL;
        }
    }

  private:
    ~ExportedObject() {
        if (!identity_) return;
        std::lock_guard<std::mutex> lock(g_liveMutex);
        auto found = g_live.find(identity_);
        if (found != g_live.end() && found->second == this) g_live.erase(found);
    }

    bool Answers(REFIID riid) const {
        if (riid == IID_IUnknown || riid == IID_IDispatch || riid == kExportedObjectIid)
            return true;
        for (host::HostInterface which : host::kAllHostInterfaces) {
            for (const IID& iid : host::IidsOf(which)) {
                if (iid == riid) return object_->Answers(which);
            }
        }
        return false;
    }

    // Whether a member exists is known only by calling it: the seam has no
    // way to ask, and calling it from GetIDsOfNames would run it twice (and
    // count twice in the simulated host's call counts). So a lacking member
    // shows here: the object's own DISP_E_UNKNOWNNAME comes back from Invoke,
    // which the adapter on the other side hands to its caller unchanged.
    HRESULT Call(DISPID id, WORD flags, const DISPPARAMS& params, VARIANT* result, UINT* argError) {
        const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
        if (put) {
            if (params.cArgs == 0 || params.cNamedArgs != 1 || !params.rgdispidNamedArgs ||
                params.rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
                return DISP_E_PARAMNOTOPTIONAL;
        } else {
            if (!(flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET))) return E_INVALIDARG;
            if (params.cNamedArgs != 0) return DISP_E_NONAMEDARGS;
        }
        // rgvarg lies last first, as the seam has it; for a put the value,
        // the named argument, is element 0, as the seam wants it too.
        std::vector<Variant> args(params.cArgs);
        for (UINT i = 0; i < params.cArgs; ++i) {
            if (FAILED(host::FromVariant(params.rgvarg[i], args[i], &kExportSide))) {
                if (argError) *argError = i;
                return DISP_E_TYPEMISMATCH;
            }
        }
        Variant value;
        HRESULT hr;
        if (id == DISPID_VALUE) {
            if (put) return DISP_E_MEMBERNOTFOUND;
            hr = object_->InvokeDefault(args.data(), args.size(), &value);
        } else {
            std::u16string name;
            if (!Names().NameOf(id, name)) return DISP_E_MEMBERNOTFOUND;
            hr = object_->Invoke(name, put ? host::InvokeKind::Put : host::InvokeKind::Get,
                                 args.data(), args.size(), put ? nullptr : &value);
        }
        if (FAILED(hr)) return hr;
        if (result && !put) {
            VARIANT converted;
            RETURN_IF_FAILED(host::ToVariant(value, converted, &kExportSide));
            *result = converted;
        }
        return hr;
    }

    LONG refs_ = 1;
    HostRef object_;
    const void* identity_;
};

HRESULT ExportOwn(const HostRef& object, IDispatch** out) {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!object) return E_POINTER;
    if (auto* adapter = dynamic_cast<host::DispatchObject*>(object.get())) {
        ComPtr<IDispatch> dispatch(adapter->Dispatch());
        if (!dispatch) return E_POINTER;
        *out = dispatch.Detach();
        return S_OK;
    }
    const void* identity = object->Identity();
    if (!identity) {
        *out = new ExportedObject(object, nullptr);
        return S_OK;
    }
    std::lock_guard<std::mutex> lock(g_liveMutex);
    auto& slot = g_live[identity];
    if (slot && slot->TryAddRef()) {
        *out = slot;
        return S_OK;
    }
    slot = new ExportedObject(object, identity);
    *out = slot;
    return S_OK;
}

HostRef ImportOwn(IDispatch* dispatch) {
    ComPtr<IUnknown> own;
    if (!dispatch || FAILED(dispatch->QueryInterface(kExportedObjectIid, &own))) return nullptr;
    return static_cast<ExportedObject*>(static_cast<IDispatch*>(own.Get()))->Object();
}

}  // namespace

HRESULT ExportDispatch(const host::HostRef& object, IDispatch** out) {
    try {
        return ExportOwn(object, out);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

const host::DispatchBridge* ExportBridge() {
    return &kDriverSide;
}

}  // namespace qb::sim
