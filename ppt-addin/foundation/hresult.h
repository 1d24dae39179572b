// HRESULT codes and the failure macros shared by portable and Windows code.
// On Windows the SDK's own definitions are used, so a code compared in the
// portable core is the very value a COM call returns.
#pragma once

#include <cstdint>

#if defined(_WIN32)
#include <winerror.h>
#include <wtypesbase.h>
#else
using HRESULT = std::int32_t;

// Linux has one calling convention; the macro keeps COM-shaped declarations
// identical in portable code and in the Windows build.
#define STDMETHODCALLTYPE

#define QB_HR(value) static_cast<HRESULT>(static_cast<std::uint32_t>(value))
#define S_OK QB_HR(0x00000000u)
#define S_FALSE QB_HR(0x00000001u)
#define E_NOTIMPL QB_HR(0x80004001u)
#define E_NOINTERFACE QB_HR(0x80004002u)
#define E_POINTER QB_HR(0x80004003u)
#define E_ABORT QB_HR(0x80004004u)
#define E_FAIL QB_HR(0x80004005u)
#define E_UNEXPECTED QB_HR(0x8000FFFFu)
#define E_ACCESSDENIED QB_HR(0x80070005u)
#define E_HANDLE QB_HR(0x80070006u)
#define E_OUTOFMEMORY QB_HR(0x8007000Eu)
#define E_INVALIDARG QB_HR(0x80070057u)
#define DISP_E_MEMBERNOTFOUND QB_HR(0x80020003u)
#define DISP_E_UNKNOWNNAME QB_HR(0x80020006u)
#define DISP_E_EXCEPTION QB_HR(0x80020009u)
#define DISP_E_BADINDEX QB_HR(0x8002000Bu)
#define DISP_E_TYPEMISMATCH QB_HR(0x80020005u)
#define DISP_E_BADPARAMCOUNT QB_HR(0x8002000Eu)
#define REGDB_E_CLASSNOTREG QB_HR(0x80040154u)
#define CLASS_E_NOAGGREGATION QB_HR(0x80040110u)
#define CLASS_E_CLASSNOTAVAILABLE QB_HR(0x80040111u)
#define RPC_E_CALL_REJECTED QB_HR(0x80010001u)
#define RPC_E_SERVERCALL_RETRYLATER QB_HR(0x8001010Au)

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#endif

namespace qb {

// Codes the run reports that the SDK has no name for.
inline constexpr HRESULT kHrCancelled = static_cast<HRESULT>(0x800704C7u);  // ERROR_CANCELLED

}  // namespace qb

// One-line failure paths, the same in every COM method.
#define RETURN_IF_FAILED(expr)           \
    do {                                 \
        const HRESULT qbHr_ = (expr);    \
        if (FAILED(qbHr_)) return qbHr_; \
    } while (0)

#define RETURN_HR_IF(hr, condition) \
    do {                            \
        if (condition) return (hr); \
    } while (0)

#define RETURN_HR_IF_NULL(hr, ptr) RETURN_HR_IF((hr), (ptr) == nullptr)
