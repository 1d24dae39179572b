// The structured-exception guard: one assembly helper a Windows ABI that
// calls the guarded function inside a frame whose handler catches anything
// raised beneath it and resumes in the helper with E_FAIL.
//
// Why it is sound: the helper is written in assembly, so the code that runs
// after a fault is exactly the code we wrote, with no compiler assumption
// about what a call may skip. Before resuming, the handler has the system
// unwind every frame between the fault and the helper (RtlUnwind on x86,
// RtlUnwindEx on x64), which runs the host's own cleanup handlers and leaves
// the x86 handler chain pointing at our record; the helper then takes its
// record off the chain and returns as a plain function would, with the
// callee-saved registers it saved itself (x86) or that the unwind restored
// from the unwind tables (x64).
#include "slides/seh_guard_win.h"

#include <windows.h>

#include <excpt.h>

extern "C" HRESULT qb_seh_call(qb::host::GuardedFunction function, void* context) noexcept;

#if defined(_M_X64) || defined(__x86_64__)

// x64: the frame is described by unwind data, and the handler is named in it.
// The guarded call is followed by a nop so that its return address never lies
// in the epilogue, which the unwinder would then read as being mid-return.
asm(R"(
    .text
    .p2align 4
    .globl qb_seh_call
    .def qb_seh_call; .scl 2; .type 32; .endef
    .seh_proc qb_seh_call
qb_seh_call:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    .seh_handler qb_seh_handler, @except
    movq %rcx, %rax
    movq %rdx, %rcx
    call *%rax
    nop
    addq $40, %rsp
    ret
    .globl qb_seh_caught
qb_seh_caught:
    movl $0x80004005, %eax
    addq $40, %rsp
    ret
    .seh_endproc
)");

extern "C" char qb_seh_caught[];

// Called by the system for an exception raised beneath qb_seh_call. The
// unwind lands on qb_seh_caught with the stack pointer of qb_seh_call's body.
extern "C" EXCEPTION_DISPOSITION qb_seh_handler(EXCEPTION_RECORD* record, void* frame,
                                                CONTEXT* context, DISPATCHER_CONTEXT* dispatcher) {
    if (record->ExceptionFlags & EXCEPTION_UNWIND) return ExceptionContinueSearch;
    ::RtlUnwindEx(frame, qb_seh_caught, record, nullptr, context, dispatcher->HistoryTable);
    return ExceptionContinueSearch;  // not reached: RtlUnwindEx doesn't return here
}

#elif defined(_M_IX86) || defined(__i386__)

// x86: the frame is a registration record (previous record, handler) pushed
// on the thread's handler chain at fs:0, right below the registers the
// helper saved. The handler never returns on a catch: after RtlUnwind it
// moves the stack back to the record, as a compiler's __except does, and the
// helper's own exit restores the rest. Windows calls a frame's handler only
// if the image allows it: a module linked with --no-seh would end the process
// instead, so none of ours is.
asm(R"(
    .text
    .p2align 4
    .globl _qb_seh_call
    .def _qb_seh_call; .scl 2; .type 32; .endef
_qb_seh_call:
    pushl %ebp
    movl %esp, %ebp
    pushl %ebx
    pushl %esi
    pushl %edi
    pushl $_qb_seh_handler
    pushl %fs:0
    movl %esp, %fs:0
    pushl 12(%ebp)
    call *8(%ebp)
    addl $4, %esp
Lqb_seh_leave:
    movl (%esp), %ecx
    movl %ecx, %fs:0
    addl $8, %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    ret

    .p2align 4
    .def _qb_seh_handler; .scl 3; .type 32; .endef
_qb_seh_handler:
    movl 4(%esp), %eax
    testl $6, 4(%eax)
    jz Lqb_seh_catch
    movl $1, %eax
    ret
Lqb_seh_catch:
    movl 8(%esp), %ebx
    pushl $0
    pushl %eax
    pushl $Lqb_seh_unwound
    pushl %ebx
    call _RtlUnwind@16
Lqb_seh_unwound:
    movl %ebx, %esp
    movl $0x80004005, %eax
    jmp Lqb_seh_leave
)");

// In the handler above: 4(%eax) is EXCEPTION_RECORD::ExceptionFlags, 6 is
// EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND (nothing of ours to clean up,
// so an unwind passes by), 1 is ExceptionContinueSearch. RtlUnwind keeps
// %ebx, which holds our record across it.
static_assert(offsetof(EXCEPTION_RECORD, ExceptionFlags) == 4, "the handler reads the flags at 4");
static_assert((EXCEPTION_UNWINDING | EXCEPTION_EXIT_UNWIND) == 6, "the handler tests the mask 6");
static_assert(ExceptionContinueSearch == 1, "the handler answers 1 to pass an unwind by");

#else
#error "the structured-exception guard knows only x86 and x64"
#endif

namespace qb::host {

HRESULT CallGuarded(GuardedFunction function, void* context) noexcept {
    if (!function) return E_POINTER;
    return qb_seh_call(function, context);
}

}  // namespace qb::host
