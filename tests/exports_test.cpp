// The shared object's dynamic symbol table, read from the ELF file itself (no readelf, no dlopen)
// so the same check runs natively and under qemu: exactly the framework's names are exported, and
// the binder import stays weak so the entity loads where the platform lacks it.
#include <cxxabi.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "rilproxy_entity.h"

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

constexpr char kReplyLinkName[] = "_Z23rilproxy_reply_responseP9vopa_taskP10vopa_eventiPvi";
constexpr char kInitWithDriver[] = "_ZN7android12ProcessState14initWithDriverEPKc";

// The exported name must be the one the framework links against: a change to the declaration's
// types changes the mangled name, and this alias then fails to link.
extern "C" int replyByLinkName(task_ptr_t, event_ptr_t, event_id_t, void *, int) __asm__(
    "_Z23rilproxy_reply_responseP9vopa_taskP10vopa_eventiPvi");
static_assert(std::is_same<decltype(&rilproxy_reply_response),
                           int (*)(vopa_task *, vopa_event *, int, void *, int)>::value);

struct DynSymbol {
    unsigned char bind;
    unsigned char type;
    unsigned char visibility;
    bool defined;
    uint64_t size;
};

struct ElfImage {
    std::string error;  // empty when the file parsed
    uint16_t machine = 0;
    std::map<std::string, DynSymbol> symbols;
};

template <typename T>
bool readAt(const std::vector<uint8_t> &file, uint64_t offset, T *out) {
    if (offset > file.size() || file.size() - offset < sizeof(T)) return false;
    memcpy(out, file.data() + offset, sizeof(T));
    return true;
}

// Every offset and count from the file is checked against its size before use: a truncated or
// foreign file gives an error, not a wild read.
ElfImage readDynamicSymbols(const std::string &path) {
    ElfImage image;
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    Elf64_Ehdr eh;
    if (!readAt(file, 0, &eh) || memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0) {
        image.error = "not an ELF file: " + path;
        return image;
    }
    if (eh.e_ident[EI_CLASS] != ELFCLASS64 || eh.e_ident[EI_DATA] != ELFDATA2LSB) {
        image.error = "not little-endian ELF64";
        return image;
    }
    image.machine = eh.e_machine;
    if (eh.e_shentsize != sizeof(Elf64_Shdr)) {
        image.error = "unexpected section header size";
        return image;
    }
    std::vector<Elf64_Shdr> sections(eh.e_shnum);
    for (uint16_t i = 0; i < eh.e_shnum; i++) {
        if (!readAt(file, eh.e_shoff + uint64_t{i} * sizeof(Elf64_Shdr), &sections[i])) {
            image.error = "section header table out of the file";
            return image;
        }
    }
    const Elf64_Shdr *dynsym = nullptr;
    for (const Elf64_Shdr &s : sections) {
        if (s.sh_type == SHT_DYNSYM) dynsym = &s;
    }
    if (dynsym == nullptr || dynsym->sh_link >= sections.size() ||
        dynsym->sh_entsize != sizeof(Elf64_Sym)) {
        image.error = "no usable .dynsym";
        return image;
    }
    const Elf64_Shdr &dynstr = sections[dynsym->sh_link];
    if (dynstr.sh_offset > file.size() || file.size() - dynstr.sh_offset < dynstr.sh_size) {
        image.error = ".dynstr out of the file";
        return image;
    }
    const char *strings = reinterpret_cast<const char *>(file.data() + dynstr.sh_offset);
    for (uint64_t i = 1; i < dynsym->sh_size / sizeof(Elf64_Sym); i++) {  // entry 0 is null
        Elf64_Sym sym;
        if (!readAt(file, dynsym->sh_offset + i * sizeof(Elf64_Sym), &sym) ||
            sym.st_name >= dynstr.sh_size) {
            image.error = ".dynsym entry out of the file";
            return image;
        }
        const char *name = strings + sym.st_name;
        size_t len = strnlen(name, dynstr.sh_size - sym.st_name);
        image.symbols[std::string(name, len)] = {
            static_cast<unsigned char>(ELF64_ST_BIND(sym.st_info)),
            static_cast<unsigned char>(ELF64_ST_TYPE(sym.st_info)),
            static_cast<unsigned char>(ELF64_ST_VISIBILITY(sym.st_other)),
            sym.st_shndx != SHN_UNDEF, sym.st_size};
    }
    return image;
}

class ExportsTest : public testing::Test {
protected:
    static void SetUpTestSuite() { sImage = new ElfImage(readDynamicSymbols(ZOK_ENTITY_SO)); }
    static void TearDownTestSuite() {
        delete sImage;
        sImage = nullptr;
    }
    void SetUp() override {
        ASSERT_EQ(sImage->error, "");
        ASSERT_EQ(sImage->machine, kMachine) << "read the wrong build's " << ZOK_ENTITY_SO;
    }
    static ElfImage *sImage;
};

ElfImage *ExportsTest::sImage = nullptr;

TEST_F(ExportsTest, ExportsExactlyTheFrameworkNames) {
    std::set<std::string> exported;
    for (const auto &entry : sImage->symbols) {
        const DynSymbol &s = entry.second;
        if (s.defined && (s.bind == STB_GLOBAL || s.bind == STB_WEAK) &&
            s.visibility == STV_DEFAULT) {
            exported.insert(entry.first);
        }
    }
    const std::set<std::string> expected = {
        "rilproxy_entity_init", "rilproxy_entity_version", "rilproxy_entity_exit", kReplyLinkName,
        "ril_handlers",         "ril_handlers_tlv",        "ril_notifys",
    };
    EXPECT_EQ(exported, expected);
}

TEST_F(ExportsTest, ExportsAreFunctionsOrWholeTablesAsTheFrameworkBindsThem) {
    struct Case {
        const char *name;
        unsigned char type;
        uint64_t size;  // tables: their rows, the end row included
    };
    const Case cases[] = {
        {"rilproxy_entity_init", STT_FUNC, 0},
        {"rilproxy_entity_version", STT_FUNC, 0},
        {"rilproxy_entity_exit", STT_FUNC, 0},
        {kReplyLinkName, STT_FUNC, 0},
        {"ril_handlers", STT_OBJECT, 15 * sizeof(ril_handler_t)},
        {"ril_handlers_tlv", STT_OBJECT, 4 * sizeof(ril_handler_tlv_t)},
        {"ril_notifys", STT_OBJECT, 7 * sizeof(ril_notify_t)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto it = sImage->symbols.find(c.name);
        ASSERT_TRUE(it != sImage->symbols.end()) << "not in .dynsym";
        EXPECT_EQ(it->second.type, c.type);
        EXPECT_EQ(it->second.bind, STB_GLOBAL);
        if (c.type == STT_OBJECT) {
            EXPECT_EQ(it->second.size, c.size);
        }
    }
}

TEST_F(ExportsTest, ReplyResponseLinkNameIsItsCxxSignature) {
    int status = -1;
    char *demangled = abi::__cxa_demangle(kReplyLinkName, nullptr, nullptr, &status);
    ASSERT_EQ(status, 0);
    EXPECT_STREQ(demangled, "rilproxy_reply_response(vopa_task*, vopa_event*, int, void*, int)");
    free(demangled);
    EXPECT_EQ(reinterpret_cast<void *>(&replyByLinkName),
              reinterpret_cast<void *>(&rilproxy_reply_response));
}

TEST_F(ExportsTest, BinderInitWithDriverIsAWeakImport) {
    auto it = sImage->symbols.find(kInitWithDriver);
    ASSERT_TRUE(it != sImage->symbols.end()) << "the entity no longer refers to initWithDriver";
    EXPECT_FALSE(it->second.defined);
    // A strong reference would make the loader refuse the entity on a platform without it.
    EXPECT_EQ(it->second.bind, STB_WEAK);
}

}  // namespace
