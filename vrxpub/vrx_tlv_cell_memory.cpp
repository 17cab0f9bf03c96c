// Where cells live. A package is read by making hundreds of cells and ends by dropping them all; each thread keeps some
// dropped ones for the next package, which takes a fifth off the time of a decode. A cell may end on another thread
// than it began on: it then serves that thread.
#include <cstddef>
#include <new>

#include "vrxpub/vrx_tlv_cell.h"

// A sanitizer has to see when each single cell is given back: its builds do without the reserve.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAMREL_CELL_RESERVE 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define TAMREL_CELL_RESERVE 0
#endif
#endif
#ifndef TAMREL_CELL_RESERVE
#define TAMREL_CELL_RESERVE 1024  // cells of a thread: 50 rows of 20 columns, 32 KiB with malloc's share
#endif

namespace {

struct tSpareCell {
    tSpareCell* next;
};
static_assert(sizeof(tSpareCell) <= sizeof(CTLVCell));

// Without destructors, so that cells which end after the thread's other objects still find them.
thread_local tSpareCell* spareCells = nullptr;
thread_local unsigned int roomForSpares = TAMREL_CELL_RESERVE;

// Gives the reserve back when the thread ends, and keeps none from there on.
struct tReserveEnd {
    ~tReserveEnd() {
        roomForSpares = 0;
        while (spareCells != nullptr) {
            tSpareCell* const spare = spareCells;
            spareCells = spare->next;
            ::operator delete(spare);
        }
    }
};

}  // namespace

void* CTLVCell::operator new(std::size_t size) {
    tSpareCell* const spare = spareCells;
    if (spare == nullptr) return ::operator new(size);
    spareCells = spare->next;
    ++roomForSpares;
    return spare;
}

void CTLVCell::operator delete(void* block) noexcept {
    if (block == nullptr || roomForSpares == 0) {
        ::operator delete(block);
        return;
    }
    if (spareCells == nullptr) {
        thread_local const tReserveEnd reserveEnd;  // made once a thread, when it first keeps a cell
        (void)reserveEnd;
    }
    spareCells = new (block) tSpareCell{spareCells};
    --roomForSpares;
}
