// Release maker: writes a sample release of design files for the POF checker, with the tools
// its remote steps run.
//
//   pgm_release_maker --out <dir> [--sofs <n>] [--gzip-every <k>] [--dies <die,die,...>]
//                     [--seed <s>] [--emulator-root <dir>] [--tool-bin <dir>]
//
//   <dir>/sof2img/<family>_sof2img.exe      SOF-to-image converter of each family
//   <dir>/<family>/<DIE>/<die>_designNN.sof  n designs per die (default 2); every k-th one
//                                            (default 2; 0 = none) stored gzip-compressed
//   <dir>/<family>/<DIE>/<DIE>.rif           redundancy file, for dies with redundancy (boreal5)
//   <emulator-root>/<DIE>/<DIE>              the die's ICD emulator build (emulator path of the die)
//   <emulator-root>/<DIE>/<DIE>.model        its control-block model
//   <dir>/RELEASE.txt                        what was made, and the dies whose emulator disagrees
//
// The emulator root defaults to <dir>/icd_emulator, the tools' directory to this program's own.
// Designs come from the programmer library's compiler; the same seed gives the same release.
#include "cb_tools.h"
#include "pgm_design.h"

#include <zlib.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct OPTIONS {
    std::string out;
    unsigned sofs = 2;
    unsigned gzip_every = 2;
    std::vector<std::string> dies;
    std::uint32_t seed = 1;
    std::string emulator_root;
    std::string tool_bin;
};

bool parse_number(const char* text, unsigned& value)
{
    char* end = nullptr;
    const unsigned long number = std::strtoul(text, &end, 10);
    value = static_cast<unsigned>(number);
    return *text != '\0' && *end == '\0' && number <= 0xFFFFFFFFul;
}

std::vector<std::string> split_list(const std::string& text)
{
    std::vector<std::string> items;
    std::stringstream stream(text);
    for (std::string item; std::getline(stream, item, ',');)
        if (!item.empty())
            items.push_back(item);
    return items;
}

std::string own_directory()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return ".";
    const std::string self(path, static_cast<std::size_t>(length));
    return self.substr(0, self.rfind('/'));
}

bool parse_options(int argc, char** argv, OPTIONS& options)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const char* value = argv[i + 1];
        bool good = true;
        if (name == "--out")
            options.out = value;
        else if (name == "--sofs")
            good = parse_number(value, options.sofs) && options.sofs > 0 && options.sofs < 100;
        else if (name == "--gzip-every")
            good = parse_number(value, options.gzip_every);
        else if (name == "--dies")
            options.dies = split_list(value);
        else if (name == "--seed")
            good = parse_number(value, options.seed);
        else if (name == "--emulator-root")
            options.emulator_root = value;
        else if (name == "--tool-bin")
            options.tool_bin = value;
        else
            good = false;
        if (!good)
            return false;
    }
    if (argc % 2 == 0 || options.out.empty())
        return false;
    if (options.emulator_root.empty())
        options.emulator_root = options.out + "/icd_emulator";
    if (options.tool_bin.empty())
        options.tool_bin = own_directory();
    return true;
}

bool make_directories(const std::string& path)
{
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
        if (slash == std::string::npos)
            return true;
    }
}

std::string shell_quote(const std::string& text)
{
    std::string quoted = "'";
    for (char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

bool write_script(const std::string& path, const std::string& text)
{
    return cb_write_text(path, "#!/bin/sh\n" + text) && chmod(path.c_str(), 0755) == 0;
}

bool gzip_file(const std::string& from, const std::string& to)
{
    std::vector<unsigned char> bytes;
    gzFile out = gzopen(to.c_str(), "wb6");
    if (out == nullptr || !cb_read_file(from, bytes)) {
        if (out != nullptr)
            gzclose(out);
        return false;
    }
    bool written = true;
    for (std::size_t offset = 0; offset < bytes.size() && written; offset += 1u << 24) {
        const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(1u << 24, bytes.size() - offset));
        written = gzwrite(out, bytes.data() + offset, chunk) == static_cast<int>(chunk);
    }
    return gzclose(out) == Z_OK && written;
}

// Deterministic per design, different for every die and design number.
std::uint32_t design_seed(std::uint32_t seed, std::size_t die_index, unsigned design)
{
    return seed * 1000003u + static_cast<std::uint32_t>(die_index) * 101u + design;
}

class RELEASE {
public:
    explicit RELEASE(const OPTIONS& options) : m_options(options) {}

    std::string make();

private:
    std::string write_converters();
    std::string write_die(std::size_t index, const PGM_DIE_INFO& row, const CB_DIE& die);
    std::string write_design(const PGM_DEVICE& device, const std::string& path, std::uint32_t seed, bool compress);
    std::string write_emulator(const CB_DIE& die);
    bool selected(const char* die) const;

    const OPTIONS& m_options;
    std::ostringstream m_notes;
};

bool RELEASE::selected(const char* die) const
{
    if (m_options.dies.empty())
        return true;
    for (const std::string& name : m_options.dies)
        if (strcasecmp(name.c_str(), die) == 0)
            return true;
    return false;
}

std::string RELEASE::write_converters()
{
    const std::string dir = m_options.out + "/sof2img";
    if (!make_directories(dir))
        return "cannot create " + dir;
    std::vector<std::string> families;
    for (const CB_DIE& die : cb_dies())
        if (families.empty() || families.back() != die.family)
            families.push_back(die.family);
    for (const std::string& family : families) {
        const std::string path = dir + "/" + family + "_sof2img.exe";
        if (!write_script(path, "# SOF-to-image converter of the " + family + " family.\nexec " +
                                    shell_quote(m_options.tool_bin + "/pgm_sof2img") + " --family " + family +
                                    " \"$@\"\n"))
            return "cannot write " + path;
    }
    return std::string();
}

std::string RELEASE::write_emulator(const CB_DIE& die)
{
    const std::string dir = m_options.emulator_root + "/" + die.die;
    const std::string path = dir + "/" + die.die;
    if (!make_directories(dir) || !cb_write_text(path + ".model", cb_model_text(die)) ||
        !write_script(path, "# ICD control-block emulator build of die " + std::string(die.die) +
                                "; its model lies beside this script.\nexec " +
                                shell_quote(m_options.tool_bin + "/pgm_cb_emulator") + " --model \"$0.model\"" +
                                " --name \"$0\" \"$@\"\n"))
        return "cannot write the emulator of " + std::string(die.die) + " in " + dir;
    m_notes << "emulator " << die.die << ": " << path << "\n";
    if (*die.note != '\0')
        m_notes << "disagreement " << die.die << ": " << die.note << "\n";
    return std::string();
}

std::string RELEASE::write_design(const PGM_DEVICE& device, const std::string& path, std::uint32_t seed,
                                  bool compress)
{
    const PGM_SOF_DESIGN design = pgm_compile_design(device, seed);
    const std::string plain = compress ? path + ".plain" : path;
    if (!pgm_sof_write(plain, design))
        return "cannot write " + plain;
    if (compress) {
        const bool packed = gzip_file(plain, path);
        std::remove(plain.c_str());
        if (!packed)
            return "cannot compress " + path;
    }
    m_notes << "design " << path << (compress ? " (gzip)" : "") << "\n";
    return std::string();
}

std::string RELEASE::write_die(std::size_t index, const PGM_DIE_INFO& row, const CB_DIE& die)
{
    const std::string dir = m_options.out + "/" + row.family + "/" + row.die;
    if (!make_directories(dir))
        return "cannot create " + dir;
    const PGM_DEVICE device(row);
    std::string lower = row.die;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (unsigned k = 1; k <= m_options.sofs; ++k) {
        char name[32];
        std::snprintf(name, sizeof name, "/%s_design%02u.sof", lower.c_str(), k);
        const bool compress = m_options.gzip_every > 0 && k % m_options.gzip_every == 0;
        const std::string error = write_design(device, dir + name, design_seed(m_options.seed, index, k), compress);
        if (!error.empty())
            return error;
    }
    if (die.redundancy) {
        CB_FUSES fuses;
        const std::size_t core_frames = std::size_t(die.core_sections) * die.core_frames;
        const std::size_t first = design_seed(m_options.seed, index, 0) % core_frames;
        for (std::size_t i = 0; i < 4; ++i)
            fuses[(first + i * (core_frames / 4)) % core_frames] = static_cast<std::uint16_t>(0x1111 * (i + 1) ^ index);
        const std::string path = dir + "/" + row.die + ".rif";
        if (!cb_write_text(path, cb_rif_text(die, fuses)))
            return "cannot write " + path;
    }
    return write_emulator(die);
}

std::string RELEASE::make()
{
    for (const std::string& name : m_options.dies)
        if (PGM_DEVICE_DATABASE::find_die(name) == nullptr)
            return "unknown die " + name;
    for (const char* tool : {"/pgm_sof2img", "/pgm_cb_emulator"})
        if (access((m_options.tool_bin + tool).c_str(), X_OK) != 0)
            return "no " + m_options.tool_bin + tool;
    std::string error = write_converters();
    const std::vector<PGM_DIE_INFO>& rows = PGM_DEVICE_DATABASE::get_dies();
    for (std::size_t i = 0; i < rows.size() && error.empty(); ++i) {
        const CB_DIE* die = cb_find_die(rows[i].die);
        if (die == nullptr)
            error = "no control-block description of " + std::string(rows[i].die);
        else if (selected(rows[i].die))
            error = write_die(i, rows[i], *die);
    }
    if (error.empty() && !cb_write_text(m_options.out + "/RELEASE.txt",
                                        "# Sample release for the POF checker.\n" + m_notes.str()))
        error = "cannot write " + m_options.out + "/RELEASE.txt";
    return error;
}

} // namespace

int main(int argc, char** argv)
{
    OPTIONS options;
    if (!parse_options(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: %s --out <dir> [--sofs <n>] [--gzip-every <k>] [--dies <die,...>] [--seed <s>]"
                     " [--emulator-root <dir>] [--tool-bin <dir>]\n",
                     argv[0]);
        return 1;
    }
    const std::string error = RELEASE(options).make();
    if (!error.empty()) {
        std::fprintf(stderr, "release maker: error: %s\n", error.c_str());
        return 2;
    }
    return 0;
}
