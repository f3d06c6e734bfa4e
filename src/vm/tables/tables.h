// Builds the kernel tables, cost tables and entry points of one element type
// from the catalogue.  Each tables_<t>.cpp defines QOR_VM_SEL_<t> to expand
// the rows of its type and the others to nothing, then includes this file.
//
// Per table (function and form):
//   qor_vm_tab_<t><Func>[I]              hidden 48-byte object: kernels, costs
//   qor_pex_kernel_<t><Func>[I]_ttab     exported alias at offset 0 (24 bytes)
//   qor_pex_kernel_<t><Func>[I]_ctab     exported alias at offset 24 (24 bytes)
//   _pex<t><Func>[I], _HA, LA and EP names: entry points emitted as assembly,
//   because an entry point must be nothing but a load of its slot and a jump
//   (Pack/Unpack: a call with the width argument 1; z Powx: a call with a
//   private copy of the scalar).
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>

#include "qor/vm.h"
#include "vm/kernels/core/arith.h"
#include "vm/kernels/core/shapes.h"
#include "vm/kernels/elem/elem.h"
#include "vm/kernels/families.h"
#include "vm/kernels/cplx/arith.h"

namespace qor::vm::tables {

static_assert(sizeof(QorPexKernelTable) == 48);
static_assert(offsetof(QorPexKernelTable, kernel) == 0);
static_assert(offsetof(QorPexKernelTable, cost) == 24);
static_assert(offsetof(QorPexKernelTable, zero) == 36);

// Per-element real routines in the driver's protocol.
template <class F>
struct ElemReal {
  template <class T, int S>
  static T elem(T a, int &c) {
    return F::template eval<T, S>(a, c);
  }
  template <class T, int S>
  static T elem(T a, T b, int &c) {
    return F::template eval<T, S>(a, b, c);
  }
  template <class T, int S>
  static T elem(int n, T a, int &c) {
    return F::template eval<T, S>(n, a, c);
  }
  template <class T, int S>
  static void elem(T a, T &r1, T &r2, int &c) {
    F::template eval<T, S>(a, r1, r2, c);
  }
};

// Per-element complex routines: C -> C, (C, C) -> C, C -> T (elem_r) and
// T -> C (elem_c).
template <class F>
struct ElemCplx {
  template <class T, int S>
  static std::complex<T> elem(std::complex<T> a, int &c) {
    return F::template eval<T, S>(a, c);
  }
  template <class T, int S>
  static std::complex<T> elem(std::complex<T> a, std::complex<T> b, int &c) {
    return F::template eval<T, S>(a, b, c);
  }
  template <class T, int S>
  static T elem_r(std::complex<T> a, int &c) {
    return F::template eval<T, S>(a, c);
  }
  template <class T, int S>
  static std::complex<T> elem_c(T a, int &c) {
    return F::template eval<T, S>(a, c);
  }
};

struct Elem16 {
  uint64_t lo, hi;
};

// A table as stored: the three slots keep their kernels' own pointer types,
// so the object is a constant (no run-time initialisation, read-only after
// relocation); its layout is that of QorPexKernelTable.
template <class K0, class K1, class K2>
struct TypedTable {
  K0 kernel0;
  K1 kernel1;
  K2 kernel2;
  float cost[3];
  uint8_t zero[12];
};
template <class K0, class K1, class K2>
constexpr bool same_layout() {
  using Tt = TypedTable<K0, K1, K2>;
  return sizeof(Tt) == sizeof(QorPexKernelTable) && offsetof(Tt, kernel1) == 8 &&
         offsetof(Tt, kernel2) == 16 && offsetof(Tt, cost) == 24 && offsetof(Tt, zero) == 36;
}

}  // namespace qor::vm::tables

// ---- type letters -------------------------------------------------------------
#define QOR_VM_T_s float
#define QOR_VM_T_d double
#define QOR_VM_T_c float
#define QOR_VM_T_z double
#define QOR_VM_E_s uint32_t
#define QOR_VM_E_d uint64_t
#define QOR_VM_E_c uint64_t
#define QOR_VM_E_z ::qor::vm::tables::Elem16
#define QOR_VM_SUFLA_s "_21"
#define QOR_VM_SUFLA_c "_21"
#define QOR_VM_SUFLA_d "_50"
#define QOR_VM_SUFLA_z "_50"
#define QOR_VM_SUFEP_s "_11"
#define QOR_VM_SUFEP_c "_11"
#define QOR_VM_SUFEP_d "_26"
#define QOR_VM_SUFEP_z "_26"

// ---- which kernel each slot runs ------------------------------------------------
#define QOR_VM_SLOT0_THREE 0
#define QOR_VM_SLOT1_THREE 1
#define QOR_VM_SLOT2_THREE 2
#define QOR_VM_SLOT0_ONE 1
#define QOR_VM_SLOT1_ONE 1
#define QOR_VM_SLOT2_ONE 1
#define QOR_VM_SLOT0_LA_HA 1
#define QOR_VM_SLOT1_LA_HA 1
#define QOR_VM_SLOT2_LA_HA 2
#define QOR_VM_SLOT0_LA_EP 0
#define QOR_VM_SLOT1_LA_EP 1
#define QOR_VM_SLOT2_LA_EP 0

// ---- the operation behind a row ----------------------------------------------
#define QOR_VM_OP_arith(F) ::qor::vm::ops::F
#define QOR_VM_OP_vec(F) ::qor::vm::vec::F
#define QOR_VM_OP_elem(F) ::qor::vm::tables::ElemReal<::qor::vm::elem::F>
#define QOR_VM_OP_cvec(F) ::qor::vm::cvec::F
#define QOR_VM_OP_cplx(F) ::qor::vm::tables::ElemCplx<::qor::vm::elem::cplx::F>
#define QOR_VM_OP_pack(F) void

// Kernel for (row, slot, form).
#define QOR_VM_KGEN(SH, t, IMPL, F, S, N, form) \
  (&::qor::vm::shape::SH<QOR_VM_OP_##IMPL(F), QOR_VM_T_##t, S, N>::form)
#define QOR_VM_K_U QOR_VM_KGEN
#define QOR_VM_K_B QOR_VM_KGEN
#define QOR_VM_K_X QOR_VM_KGEN
#define QOR_VM_K_R2 QOR_VM_KGEN
#define QOR_VM_K_LF QOR_VM_KGEN
#define QOR_VM_K_J QOR_VM_KGEN
#define QOR_VM_K_CU QOR_VM_KGEN
#define QOR_VM_K_CB QOR_VM_KGEN
#define QOR_VM_K_CX QOR_VM_KGEN
#define QOR_VM_K_CR QOR_VM_KGEN
#define QOR_VM_K_CC QOR_VM_KGEN
#define QOR_VM_KPACK(t, fn) (&::qor::vm::shape::Pack<QOR_VM_E_##t>::fn)
#define QOR_VM_K_P_PackI(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, packI)
#define QOR_VM_K_P_PackV(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, packV)
#define QOR_VM_K_P_PackM(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, packM)
#define QOR_VM_K_P_UnpackI(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, unpackI)
#define QOR_VM_K_P_UnpackV(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, unpackV)
#define QOR_VM_K_P_UnpackM(SH, t, IMPL, F, S, N, form) QOR_VM_KPACK(t, unpackM)

// Catalogue cost cells not measured yet.
#define UNMEASURED QOR_PEX_COST_UNMEASURED

// ---- entry point assembly ------------------------------------------------------
#define QOR_VM_STR_(x) #x
#define QOR_VM_STR(x) QOR_VM_STR_(x)

#define QOR_VM_ASM_LABEL(sym) ".globl " sym "\n.type " sym ", @function\n" sym ":\n"
#define QOR_VM_ASM_SIZE(sym) ".size " sym ", .-" sym "\n"

// Plain entry: load the slot, jump.  The kernel returns to the caller.
#define QOR_VM_BODY_JMP(tab, off) \
  "\t.cfi_startproc\n\tmovq " tab "+" off "(%rip), %rax\n\tjmp *%rax\n\t.cfi_endproc\n"
// Pack/Unpack: call the slot with 1 as the fifth argument (32-bit integers).
#define QOR_VM_BODY_PACK(tab, off)                                            \
  "\t.cfi_startproc\n\tsubq $8, %rsp\n\t.cfi_adjust_cfa_offset 8\n"           \
  "\tmovl $1, %r8d\n\tcall *" tab "+" off "(%rip)\n"                          \
  "\taddq $8, %rsp\n\t.cfi_adjust_cfa_offset -8\n\tret\n\t.cfi_endproc\n"
// z Powx: copy the 16-byte scalar (address in `reg`) into this frame, under
// a stack-guard word, and hand the kernel the copy's address.
#define QOR_VM_BODY_ZPOWX(tab, off, reg)                                       \
  "\t.cfi_startproc\n\tsubq $40, %rsp\n\t.cfi_adjust_cfa_offset 40\n"          \
  "\tmovq %fs:40, %rax\n\tmovq %rax, 24(%rsp)\n"                               \
  "\tmovdqu (" reg "), %xmm0\n\tmovdqa %xmm0, (%rsp)\n\tmovq %rsp, " reg "\n"  \
  "\tcall *" tab "+" off "(%rip)\n"                                            \
  "\tmovq 24(%rsp), %rax\n\tsubq %fs:40, %rax\n\tjne 1f\n"                     \
  "\taddq $40, %rsp\n\t.cfi_remember_state\n\t.cfi_adjust_cfa_offset -40\n\tret\n" \
  "1:\n\t.cfi_restore_state\n\tcall __stack_chk_fail@PLT\n\t.cfi_endproc\n"

// Entry kind by shape (and, for complex Powx, by type).
#define QOR_VM_BODY_KIND_U(t, form) JMP
#define QOR_VM_BODY_KIND_B(t, form) JMP
#define QOR_VM_BODY_KIND_X(t, form) JMP
#define QOR_VM_BODY_KIND_R2(t, form) JMP
#define QOR_VM_BODY_KIND_LF(t, form) JMP
#define QOR_VM_BODY_KIND_J(t, form) JMP
#define QOR_VM_BODY_KIND_CU(t, form) JMP
#define QOR_VM_BODY_KIND_CB(t, form) JMP
#define QOR_VM_BODY_KIND_CR(t, form) JMP
#define QOR_VM_BODY_KIND_CC(t, form) JMP
#define QOR_VM_BODY_KIND_CX(t, form) QOR_VM_CXKIND_##t##_##form
#define QOR_VM_CXKIND_c_contig JMP
#define QOR_VM_CXKIND_c_strided JMP
#define QOR_VM_CXKIND_z_contig ZPOWX_RDX
#define QOR_VM_CXKIND_z_strided ZPOWX_RCX
#define QOR_VM_BODY_KIND_P_PackI(t, form) PACK
#define QOR_VM_BODY_KIND_P_PackV(t, form) PACK
#define QOR_VM_BODY_KIND_P_PackM(t, form) PACK
#define QOR_VM_BODY_KIND_P_UnpackI(t, form) PACK
#define QOR_VM_BODY_KIND_P_UnpackV(t, form) PACK
#define QOR_VM_BODY_KIND_P_UnpackM(t, form) PACK
#define QOR_VM_BODY_JMP_(tab, off) QOR_VM_BODY_JMP(tab, off)
#define QOR_VM_BODY_PACK_(tab, off) QOR_VM_BODY_PACK(tab, off)
#define QOR_VM_BODY_ZPOWX_RDX_(tab, off) QOR_VM_BODY_ZPOWX(tab, off, "%rdx")
#define QOR_VM_BODY_ZPOWX_RCX_(tab, off) QOR_VM_BODY_ZPOWX(tab, off, "%rcx")
#define QOR_VM_BODY_CAT_(kind) QOR_VM_BODY_##kind##_
#define QOR_VM_BODY_CAT(kind) QOR_VM_BODY_CAT_(kind)
#define QOR_VM_BODY(SH, t, form, tab, off) \
  QOR_VM_BODY_CAT(QOR_VM_BODY_KIND_##SH(t, form))(tab, off)

#define QOR_VM_ENTRIES(SH, t, form, name, tab)                                        \
  asm(".pushsection .text\n.p2align 4\n" QOR_VM_ASM_LABEL("_pex" name)                \
          QOR_VM_ASM_LABEL("_pex" name "_HA") QOR_VM_BODY(SH, t, form, tab, "8")      \
              QOR_VM_ASM_SIZE("_pex" name) QOR_VM_ASM_SIZE("_pex" name "_HA")         \
      ".p2align 4\n" QOR_VM_ASM_LABEL("_pex" name QOR_VM_SUFLA_##t)                   \
          QOR_VM_BODY(SH, t, form, tab, "0") QOR_VM_ASM_SIZE("_pex" name QOR_VM_SUFLA_##t) \
      ".p2align 4\n" QOR_VM_ASM_LABEL("_pex" name QOR_VM_SUFEP_##t)                   \
          QOR_VM_BODY(SH, t, form, tab, "16") QOR_VM_ASM_SIZE("_pex" name QOR_VM_SUFEP_##t) \
      ".popsection\n");

#define QOR_VM_EXPORT_TABLE(tab, ttab, ctab)                                          \
  asm(".globl " ttab "\n.type " ttab ", @object\n.size " ttab ", 24\n.set " ttab ", " \
      tab "\n.globl " ctab "\n.type " ctab ", @object\n.size " ctab ", 24\n.set " ctab \
      ", " tab "+24\n");

// One table with its entry points.
#define QOR_VM_TABLE(t, id, SH, SHARE, IMPL, F, N, form, c0, c1, c2)                      \
  namespace qor::vm::tables {                                                             \
  using K0_##id = decltype(QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT0_##SHARE, N, form));  \
  using K1_##id = decltype(QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT1_##SHARE, N, form));  \
  using K2_##id = decltype(QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT2_##SHARE, N, form));  \
  static_assert(same_layout<K0_##id, K1_##id, K2_##id>());                                \
  }                                                                                       \
  extern "C" __attribute__((visibility("hidden"), used, aligned(16))) constinit const     \
      ::qor::vm::tables::TypedTable<::qor::vm::tables::K0_##id, ::qor::vm::tables::K1_##id, \
                                    ::qor::vm::tables::K2_##id>                           \
          qor_vm_tab_##id = {QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT0_##SHARE, N, form),  \
                             QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT1_##SHARE, N, form),  \
                             QOR_VM_K_##SH(SH, t, IMPL, F, QOR_VM_SLOT2_##SHARE, N, form),  \
                             {c0, c1, c2},                                                  \
                             {}};                                                           \
  QOR_VM_EXPORT_TABLE("qor_vm_tab_" #id, "qor_pex_kernel_" #id "_ttab",                  \
                      "qor_pex_kernel_" #id "_ctab")                                      \
  QOR_VM_ENTRIES(SH, t, form, #id, "qor_vm_tab_" #id)

#define QOR_VM_FORMS_BOTH(t, F, SH, SHARE, IMPL, N, c0, c1, c2, i0, i1, i2) \
  QOR_VM_TABLE(t, t##F, SH, SHARE, IMPL, F, N, contig, c0, c1, c2)          \
  QOR_VM_TABLE(t, t##F##I, SH, SHARE, IMPL, F, N, strided, i0, i1, i2)
#define QOR_VM_FORMS_ONE(t, F, SH, SHARE, IMPL, N, c0, c1, c2, i0, i1, i2) \
  QOR_VM_TABLE(t, t##F, SH, SHARE, IMPL, F, N, contig, c0, c1, c2)

#define QOR_VM_ROW(t, F, SH, FORMS, SHARE, IMPL, REP, c0, c1, c2, i0, i1, i2)              \
  namespace qor::vm::tables {                                                              \
  struct N_##t##F {                                                                        \
    static constexpr const char *s = REP;                                                  \
  };                                                                                       \
  }                                                                                        \
  QOR_VM_FORMS_##FORMS(t, F, SH, SHARE, IMPL, ::qor::vm::tables::N_##t##F, c0, c1, c2, i0, \
                       i1, i2)

#define QOR_VM_FN(t, ...) QOR_VM_SEL_##t(t, __VA_ARGS__)
