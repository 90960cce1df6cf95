#include "start_pages.h"

#include <cstddef>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

namespace client {

namespace {

/// Whether the dynamic linker writes to code of an object, so that its pages are not those of the
/// file.
bool hasPatchedCode(const dl_phdr_info &object)
{
    for (int i = 0; i < object.dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object.dlpi_phdr[i];
        if (segment.p_type != PT_DYNAMIC)
            continue;
        const auto *entry = reinterpret_cast<const ElfW(Dyn) *>(object.dlpi_addr + segment.p_vaddr);
        for (; entry->d_tag != DT_NULL; ++entry)
            if (entry->d_tag == DT_TEXTREL ||
                (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_TEXTREL) != 0))
                return true;
    }
    return false;
}

int giveBack(dl_phdr_info *object, std::size_t, void *)
{
    if (hasPatchedCode(*object))
        return 0;
    const auto pageSize = static_cast<ElfW(Addr)>(::sysconf(_SC_PAGESIZE));
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0)
            continue;
        const ElfW(Addr) begin = (object->dlpi_addr + segment.p_vaddr) & ~(pageSize - 1);
        const ElfW(Addr) end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        // What cannot be given back, as the kernel's own object, stays.
        ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_DONTNEED);
    }
    return 0;
}

} // namespace

void giveBackStartPages()
{
    ::dl_iterate_phdr(&giveBack, nullptr);
}

} // namespace client
