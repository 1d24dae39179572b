// The COM plumbing of the add-in's two classes, written once: the module's
// lock count, one IUnknown over an interface table, and one class factory.
// A class lists its interfaces; ComObject<T> counts references and answers
// QueryInterface from the list; ClassFactory makes them.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include <atomic>
#include <new>

namespace qb::com {

// Objects and server locks alive in the module; DllCanUnloadNow asks it.
std::atomic<long>& ModuleLocks();

struct InterfaceEntry {
    const IID* iid;
    void* (*cast)(void* self);  // null ends the table
};

// A table entry for interface I of class T.
template <class T, class I>
constexpr InterfaceEntry Entry(const IID& iid) {
    return InterfaceEntry{
        &iid, [](void* self) -> void* { return static_cast<I*>(static_cast<T*>(self)); }};
}

// The object a class factory hands out: T's interfaces and T's table, with
// IUnknown answered by the table's first entry. T may define
// `HRESULT FinalConstruct()`, which runs once the object holds a reference.
template <class T>
class ComObject final : public T {
  public:
    template <class... A>
    explicit ComObject(A&&... args) : T(static_cast<A&&>(args)...) {
        ++ModuleLocks();
    }
    ~ComObject() override { --ModuleLocks(); }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        const InterfaceEntry* table = T::Interfaces();
        for (const InterfaceEntry* e = table; e->cast; ++e) {
            if (::IsEqualIID(iid, *e->iid) || (e == table && ::IsEqualIID(iid, IID_IUnknown))) {
                *out = e->cast(static_cast<T*>(this));
                AddRef();
                return S_OK;
            }
        }
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
    STDMETHODIMP_(ULONG) Release() override {
        const long left = --refs_;
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }

    // A new object answering `iid`, or the failure; FinalConstruct runs first.
    static HRESULT Create(REFIID iid, void** out) {
        if (!out) return E_POINTER;
        *out = nullptr;
        auto* object = new (std::nothrow) ComObject<T>();
        if (!object) return E_OUTOFMEMORY;
        object->AddRef();
        HRESULT hr = object->FinalConstruct();
        if (SUCCEEDED(hr)) hr = object->QueryInterface(iid, out);
        object->Release();
        return hr;
    }

  private:
    std::atomic<long> refs_{0};
};

// The class factory of a class, by its creation function (ComObject<T>::
// Create). Aggregation is refused: neither class is built to be an inner
// object.
template <HRESULT (*Create)(REFIID, void**)>
class ClassFactory final : public IClassFactory {
  public:
    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IClassFactory)) {
            *out = static_cast<IClassFactory*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    // The factory lives as long as the module: its count is the module's.
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }
    STDMETHODIMP_(ULONG) Release() override { return 1; }

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer) return CLASS_E_NOAGGREGATION;
        try {
            return Create(iid, out);
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        if (lock) {
            ++ModuleLocks();
        } else {
            --ModuleLocks();
        }
        return S_OK;
    }
};

}  // namespace qb::com
