// The shared object's dynamic symbol table, read from the ELF file itself (no readelf, no dlopen)
// so the same check runs natively and under qemu: exactly the framework's names are exported, and
// the binder import stays weak so the entity loads where the platform lacks it. A child process
// (weak_import_probe) then loads the entity after one of two host binder libraries with the same
// soname, with and without initWithDriver: where it is absent the entity must still load and init
// must skip it.
#include <elf.h>
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "rilproxy_entity.h"
#include "support/child_process.h"

namespace {

// The builds must disagree on plain char, so that a byte widened without unsigned char goes
// wrong on one of them and its tests catch it.
#if defined(__aarch64__)
constexpr uint16_t kMachine = EM_AARCH64;
static_assert(!std::numeric_limits<char>::is_signed, "AArch64 keeps its unsigned char");
#elif defined(__x86_64__)
constexpr uint16_t kMachine = EM_X86_64;
static_assert(std::numeric_limits<char>::is_signed, "x86_64 keeps its signed char");
#else
#error "no expected ELF machine for this architecture"
#endif

std::string readFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

template <typename T>
bool readAt(const std::vector<uint8_t> &file, uint64_t offset, T *out) {
    if (offset > file.size() || file.size() - offset < sizeof(T)) return false;
    memcpy(out, file.data() + offset, sizeof(T));
    return true;
}

// Every offset and count from the file is checked against its size before use: a truncated or
// foreign file fails the test, not a wild read.
std::map<std::string, Elf64_Sym> dynamicSymbols(const std::string &path) {
    std::map<std::string, Elf64_Sym> symbols;
    const std::string text = readFile(path);
    const std::vector<uint8_t> file(text.begin(), text.end());
    Elf64_Ehdr eh;
    if (!readAt(file, 0, &eh) || memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 ||
        eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_ident[EI_DATA] != ELFDATA2LSB ||
        eh.e_shentsize != sizeof(Elf64_Shdr) || eh.e_machine != kMachine) {
        ADD_FAILURE() << path << " is not a little-endian ELF64 file of this build's machine";
        return symbols;
    }
    Elf64_Shdr dynsym = {}, dynstr = {};
    for (uint64_t i = 0; i < eh.e_shnum; i++) {
        Elf64_Shdr s;
        if (!readAt(file, eh.e_shoff + i * sizeof(s), &s)) break;
        if (s.sh_type != SHT_DYNSYM) continue;
        dynsym = s;
        if (!readAt(file, eh.e_shoff + uint64_t{s.sh_link} * sizeof(s), &dynstr)) break;
    }
    if (dynsym.sh_entsize != sizeof(Elf64_Sym) || dynstr.sh_offset > file.size() ||
        file.size() - dynstr.sh_offset < dynstr.sh_size) {
        ADD_FAILURE() << "no usable .dynsym and .dynstr in " << path;
        return symbols;
    }
    const char *strings = reinterpret_cast<const char *>(file.data() + dynstr.sh_offset);
    for (uint64_t i = 1; i < dynsym.sh_size / sizeof(Elf64_Sym); i++) {  // entry 0 is null
        Elf64_Sym sym;
        if (!readAt(file, dynsym.sh_offset + i * sizeof(sym), &sym) ||
            sym.st_name >= dynstr.sh_size) {
            ADD_FAILURE() << ".dynsym entry out of the file";
            break;
        }
        const char *name = strings + sym.st_name;
        symbols[std::string(name, strnlen(name, dynstr.sh_size - sym.st_name))] = sym;
    }
    return symbols;
}

// Functions by plain name (rilproxy_reply_response by its C++ signature's link name, which any
// change to its declared types changes), and the tables with exactly their rows, end row included.
TEST(ExportsTest, ExportsExactlyTheFrameworkNamesAsTheFrameworkBindsThem) {
    const std::map<std::string, std::string> expected = {
        {"rilproxy_entity_init", "global func"},
        {"rilproxy_entity_version", "global func"},
        {"rilproxy_entity_exit", "global func"},
        {"_Z23rilproxy_reply_responseP9vopa_taskP10vopa_eventiPvi", "global func"},
        {"ril_handlers", "global object " + std::to_string(15 * sizeof(ril_handler_t))},
        {"ril_handlers_tlv", "global object " + std::to_string(4 * sizeof(ril_handler_tlv_t))},
        {"ril_notifys", "global object " + std::to_string(7 * sizeof(ril_notify_t))},
    };
    std::map<std::string, std::string> exported;
    for (const auto &entry : dynamicSymbols(ZOK_ENTITY_SO)) {
        const Elf64_Sym &s = entry.second;
        unsigned char bind = ELF64_ST_BIND(s.st_info), type = ELF64_ST_TYPE(s.st_info);
        if (s.st_shndx == SHN_UNDEF || ELF64_ST_VISIBILITY(s.st_other) != STV_DEFAULT ||
            (bind != STB_GLOBAL && bind != STB_WEAK)) {
            continue;
        }
        std::string what = bind == STB_WEAK ? "weak " : "global ";
        what += type == STT_FUNC     ? "func"
                : type == STT_OBJECT ? "object " + std::to_string(s.st_size)
                                     : "type " + std::to_string(type);
        exported[entry.first] = what;
    }
    EXPECT_EQ(exported, expected);
}

// A strong reference to initWithDriver would make the loader refuse the entity where the binder
// library lacks it: the probe then fails to load it at all.
TEST(WeakImportTest, InitCallsInitWithDriverOnlyWhereTheBinderLibraryHasIt) {
    const struct {
        const char *binder;
        bool present;
    } cases[] = {{ZOK_BINDER_WITH_INIT, true}, {ZOK_BINDER_WITHOUT_INIT, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.binder);
        Outcome r =
            ChildProcess(ZOK_TEST_EMULATOR, ZOK_WEAK_IMPORT_PROBE, {c.binder, ZOK_ENTITY_SO})
                .wait();
        ASSERT_EQ(r.exitCode(), 0) << r.err;
        // The probe's first line is the address the loader bound; "(nil)" guards the test itself:
        // the child really loaded the intended library.
        std::vector<std::string> lines = r.outLines();
        ASSERT_GE(lines.size(), 3u) << r.out;
        const std::string address = lines[0].substr(lines[0].rfind(' ') + 1);
        ASSERT_EQ(address != "(nil)", c.present) << lines[0];
        // A log record's message follows the prefix's ") "; "\n" in it is written as \\n.
        auto message = [&](size_t i) { return lines[i].substr(lines[i].find(") ") + 2); };
        EXPECT_EQ(message(1), "before call initWithDriver\\n");
        EXPECT_EQ(message(2), "init_fp = " + address);
        EXPECT_EQ(r.out.find(") after call initWithDriver\n") != std::string::npos, c.present);
        EXPECT_EQ(lines.back(), "init returned 21");
    }
}

}  // namespace
