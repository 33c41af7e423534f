#include "pgmdq_pof_checker_private.h"

#include "pgm.h"
#include "thr.h"

#include <QCheckBox>

#include <algorithm>

using namespace pgmdq_pof;

// ---------------------------------------------------------------------------------------------
// Raw binaries and the comparison

PGM_CHAIN_ELEMENT* PGMDQ_POF_CHECKER::create_pgm_rbf(std::string sof_path)
{
    std::unique_ptr<PGM_CHAIN_ELEMENT> element(new (std::nothrow) PGM_CHAIN_ELEMENT(nullptr));
    if (!element)
        PGMDQ_INTERNAL_ERROR("out of memory");
    element->set_design_file(sof_path);
    if (!element->create_chain_element(PGM_CONTENT_CONFIGURATION, 0, nullptr, 0, 0, 0) ||
        element->get_bit_vector_list().empty())
        return nullptr;
    size_t total_byte_size = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list()) {
        const size_t bit_size = vector.get_bit_size();
        PGMDQ_ASSERT((bit_size%8)==0);
        total_byte_size += bit_size / 8;
    }
    // The vectors' bytes in order.
    std::vector<unsigned char> stream(total_byte_size);
    size_t output_index = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list()) {
        const size_t bytes = vector.get_bit_size() / 8;
        if (output_index + bytes <= stream.size())
            std::memcpy(stream.data() + output_index, vector.get_base_address(), bytes);
        output_index += bytes;
        thr_process_events();
    }
    PGMDQ_ASSERT(total_byte_size == output_index);
    write_result(replace_tail(sof_path, 3, "rbf"), stream.data(), stream.size());
    return element.release();
}

void PGMDQ_POF_CHECKER::create_icd_rbf(std::string dat_path)
{
    unsigned count = 0;
    const std::unique_ptr<unsigned char[]> data(read_dat(dat_path, count));
    if (data)
        write_result(replace_tail(dat_path, 3, "icd.rbf"), data.get(), 2 * size_t(count));
}

namespace {

// A frame's little-endian field of `bytes` bytes at stream bit `bit` (a byte boundary).
unsigned get_field(const unsigned char* stream, size_t bit, unsigned bytes)
{
    unsigned value = 0;
    for (unsigned i = 0; i < bytes; ++i)
        value |= unsigned(stream[bit / 8 + i]) << (8 * i);
    return value;
}

void put_field(unsigned char* stream, size_t bit, unsigned bytes, unsigned value)
{
    for (unsigned i = 0; i < bytes; ++i)
        stream[bit / 8 + i] = (unsigned char)(value >> (8 * i));
}

std::string without_extension(const std::string& path)
{
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    return dot == std::string::npos || (slash != std::string::npos && dot < slash) ? path : path.substr(0, dot);
}

// Where two bit streams first differ, for the check's summary: the byte, its frame in the
// section and the section's type.
std::string describe_difference(const PGM_PCF_TREE_ELEMENT& section, size_t byte)
{
    const size_t first_frame_bit = section.get_frame_count() ? section.get_frame_start_bit(0) : byte * 8;
    const size_t frame = section.get_frame_bits() ? (byte * 8 - std::min(byte * 8, first_frame_bit)) / section.get_frame_bits() : 0;
    return "the bit streams first differ at byte " + std::to_string(byte) + " (frame " + std::to_string(frame) +
           ", section type " + std::to_string(section.get_type()) + ")";
}

} // namespace

// Brings a frame's CRC fields up to date the way the control block fills them in: a periphery
// frame gets its error-detection CRC-32, a core frame the ICD side's core word; the frame's
// CRC-16 follows by linearity.
void PGMDQ_POF_CHECKER::patch_frame(unsigned type, unsigned char* output, const unsigned char* icd, size_t base,
                                    unsigned frame_bits, unsigned cb_data_width)
{
    const unsigned message_bits = frame_bits - PGM_FRAME_CRC16_FROM_END;
    const size_t crc16_bit = base + message_bits;
    unsigned crc16 = get_field(output, crc16_bit, 2);
    if (type == PGM_SECTION_EDCRC_FRAMES) {
        const size_t edcrc_bit = base + frame_bits - PGM_FRAME_EDCRC_FROM_END;
        const unsigned char* edcrc = output + edcrc_bit / 8;
        const unsigned edcrc1 = edcrc[0], edcrc2 = edcrc[1], edcrc3 = edcrc[2], edcrc4 = edcrc[3];
        PGMDQ_ASSERT(edcrc1 == 0 && edcrc2 == 0 && edcrc3 == 0 && edcrc4 == 0);
        const unsigned crc32 = calculate_crc32(output, unsigned(base + cb_data_width),
                                               frame_bits - PGM_FRAME_EDCRC_FROM_END - cb_data_width, 1,
                                               cb_data_width, false);
        put_field(output, edcrc_bit, 4, crc32);
        crc16 = recalculate_crc(crc16, crc32 & 0xFFFF, frame_bits - 64, message_bits);
        crc16 = recalculate_crc(crc16, crc32 >> 16, frame_bits - 48, message_bits);
    } else {
        const size_t core_bit = base + frame_bits - PGM_FRAME_CORE_WORD_FROM_END;
        const unsigned icd_word = get_field(icd, core_bit, 2);
        const unsigned change = get_field(output, core_bit, 2) ^ icd_word;
        put_field(output, core_bit, 2, icd_word);
        crc16 = recalculate_crc(crc16, change, frame_bits - 32, message_bits);
    }
    put_field(output, crc16_bit, 2, crc16);
}

// One compared section: its frames patched, the core debug pair written when `debug_base` is
// set, and whether both sides agree byte for byte (where they first differ is noted in
// `first_difference` when it holds nothing yet).
bool PGMDQ_POF_CHECKER::compare_section(const PGM_PCF_TREE_ELEMENT& section, unsigned char* output,
                                        const unsigned char* icd, size_t output_index, unsigned cb_data_width,
                                        const std::string& debug_base, unsigned core_number,
                                        std::string* first_difference)
{
    const size_t icd_cmp_start_index = section.get_start_byte(), pgm_cmp_start_index = section.get_start_byte();
    const size_t icd_cmp_end_index = section.get_end_byte(), pgm_cmp_end_index = section.get_end_byte();
    PGMDQ_ASSERT(icd_cmp_start_index > 0 && pgm_cmp_start_index > 0);
    PGMDQ_ASSERT(icd_cmp_end_index > 0 && pgm_cmp_end_index > 0);
    PGMDQ_ASSERT(icd_cmp_end_index - icd_cmp_start_index == pgm_cmp_end_index - pgm_cmp_start_index &&
                 pgm_cmp_end_index > pgm_cmp_start_index && pgm_cmp_end_index <= output_index);
    const size_t byte_size = pgm_cmp_end_index - pgm_cmp_start_index;
    const bool core = section.get_type() == PGM_SECTION_CORE_FRAMES;
    std::unique_ptr<unsigned char[]> icd_core_data, pgm_core_data;
    if (core && !debug_base.empty()) {
        icd_core_data.reset(new unsigned char[byte_size]);
        pgm_core_data.reset(new unsigned char[byte_size]);
    }
    size_t core_index = 0;
    PGMDQ_ASSERT((icd_core_data == NULL && pgm_core_data == NULL) ||
                 (icd_core_data != NULL && pgm_core_data != NULL && core_index == 0));
    const unsigned frame_bits = section.get_frame_bits();
    const size_t frame_bytes = frame_bits / 8;
    for (size_t f = 0; f < section.get_frame_count(); ++f) {
        const size_t base = section.get_frame_start_bit(f);
        patch_frame(section.get_type(), output, icd, base, frame_bits, cb_data_width);
        thr_process_events();
        if (!core)
            continue;
        if (icd_core_data) {
            std::memcpy(icd_core_data.get() + core_index, icd + base / 8, frame_bytes);
            std::memcpy(pgm_core_data.get() + core_index, output + base / 8, frame_bytes);
        }
        core_index += frame_bytes;
    }
    if (core)
        PGMDQ_ASSERT(core_index == byte_size);
    if (icd_core_data) {
        const std::string number = std::to_string(core_number);
        write_result(debug_base + "_icdcore_" + number + ".rbf", icd_core_data.get(), byte_size);
        write_result(debug_base + "_pgmcore_" + number + ".rbf", pgm_core_data.get(), byte_size);
    }
    const auto mismatch = std::mismatch(output + pgm_cmp_start_index, output + pgm_cmp_end_index, icd + icd_cmp_start_index);
    if (mismatch.first == output + pgm_cmp_end_index)
        return true;
    if (first_difference->empty())
        *first_difference = describe_difference(section, size_t(mismatch.first - output));
    return false;
}

// Copies the element's bit vectors into the output one after another and compares each
// vector's sections of types 2, 3 and 4 once it is in place.
bool PGMDQ_POF_CHECKER::compare_sections(PGM_CHAIN_ELEMENT* element, std::vector<unsigned char>& output,
                                         const std::vector<unsigned char>& icd, const std::string& sof_path,
                                         unsigned cb_data_width, std::string* first_difference)
{
    const PGM_PCF_TREE_LIST& tree_list = *element->get_device()->get_pcf_info()->get_pcf_file_info();
    const auto& vectors = element->get_bit_vector_list();
    PGMDQ_ASSERT(tree_list.size() == vectors.size());
    const std::string debug_base = m_debug_check->isChecked() ? without_extension(sof_path) : std::string();
    bool equal = true;
    unsigned core_number = 0;
    size_t output_index = 0;
    for (size_t v = 0; v < vectors.size(); ++v) {
        const size_t bit_size = vectors[v].get_bit_size();
        PGMDQ_ASSERT((bit_size) % 8 == 0);
        std::memcpy(output.data() + output_index, vectors[v].get_base_address(), bit_size / 8);
        output_index += bit_size / 8;
        for (const PGM_PCF_TREE_ELEMENT& section : tree_list[v].get_children()) {
            const unsigned type = section.get_type();
            if (type != PGM_SECTION_EDCRC_FRAMES && type != PGM_SECTION_CORE_FRAMES && type != PGM_SECTION_PLAIN_DATA)
                continue;
            if (!compare_section(section, output.data(), icd.data(), output_index, cb_data_width, debug_base,
                                 core_number, first_difference))
                equal = false;
            if (type == PGM_SECTION_CORE_FRAMES)
                ++core_number;
        }
    }
    return equal;
}

void PGMDQ_POF_CHECKER::modify_crc_pgm_rbf(PGM_CHAIN_ELEMENT* element, std::string sof_path)
{
    PGMDQ_ASSERT(element != NULL);
    const std::string icd_path = replace_tail(sof_path, 3, "icd.rbf");
    const std::string pgm_path = replace_tail(sof_path, 3, "rbf");
    const std::string output_path = replace_tail(sof_path, 3, "pgm.icd.rbf");

    const PGM_DEVICE* device = element->get_device();
    PGMDQ_ASSERT(device != NULL);
    PGMDQ_ASSERT(device->get_pcf_info() != NULL);
    const PGM_PCF_TREE_LIST* tree_list = device->get_pcf_info()->get_pcf_file_info();
    PGMDQ_ASSERT(tree_list != NULL);
    const PGM_F2P_CONSTANTS* f2p_constants = tree_list->empty() ? nullptr : tree_list->front().get_f2p_constants();
    PGMDQ_ASSERT(f2p_constants != NULL);
    if (f2p_constants->m_cb_data_width == 0)
        PGMDQ_INTERNAL_ERROR("m_cb_data_width != 0");

    // The PGM side's bytes come from the element, which wrote them to its RBF; that file must be
    // there all the same.
    std::vector<unsigned char> icd;
    const bool icd_read = read_file(icd_path, icd);
    const bool pgm_there = open_for_reading(pgm_path) != nullptr;
    if (!icd_read || !pgm_there) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR,
                   "Fail to get source file(s) - comparison terminated : " + (icd_read ? pgm_path : icd_path));
        return;
    }

    // The control block reads the stream with six data words of padding behind it.
    const size_t extra = PGMDQ_POF_FAMILY_LIST[m_family_index].cb_data_width * 6 / 8;
    const size_t size = icd.size() + extra;
    size_t bitstream_size = 0;
    for (const PGMIO_BIT_VECTOR& vector : element->get_bit_vector_list())
        bitstream_size += vector.get_bit_size() / 8;
    PGMDQ_ASSERT(bitstream_size == (size - extra));
    std::vector<unsigned char> output(size, 0);
    std::string first_difference;
    const bool passed =
        compare_sections(element, output, icd, sof_path, f2p_constants->m_cb_data_width, &first_difference);

    write_result(output_path, output.data(), size);
    if (passed)
        update_msg(PGMDQ_MSG_TYPE_INFO, POF_CHECK_PASS_INDICATOR + sof_path);
    else
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, POF_CHECK_FAIL_INDICATOR + sof_path);
    if (PGMDQ_POF_DESIGN* design = find_design(sof_path)) {
        design->outcome = passed ? PGMDQ_POF_DESIGN::PASSED : PGMDQ_POF_DESIGN::FAILED;
        design->note = first_difference;
    }
}

// Results are written whole or not at all, and never through a symbolic link; a failure is told.
bool PGMDQ_POF_CHECKER::write_result(const std::string& path, const unsigned char* data, size_t size)
{
    if (!is_regular_file(path) && !name_is_free(path))
        return false;
    std::string error;
    if (pgmdq_save_file(path, QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)), &error))
        return true;
    update_msg(PGMDQ_MSG_TYPE_ERROR, "Can't write " + path + " (" + error + ")");
    return false;
}

void PGMDQ_POF_CHECKER::compare_sof(const std::string& sof_path)
{
    const std::unique_ptr<PGM_CHAIN_ELEMENT> element(create_pgm_rbf(sof_path));
    if (!element) {
        update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Programmer fail to generate RBF for " + sof_path);
        return;
    }
    modify_crc_pgm_rbf(element.get(), sof_path);
}

bool PGMDQ_POF_CHECKER::create_rbf()
{
    PGMDQ_ASSERT(m_sof_size > 0);
    unsigned dat_num = 0;
    for (unsigned i = 0; i < m_sof_size && !thr_runs_cancelled(); ++i) {
        const std::string& sof_path = m_sof_files[i].fullpath;
        const std::string dat_path = replace_tail(sof_path, 3, "dat");
        if (!m_skip_dat) {
            if (!exists(replace_tail(sof_path, 3, "img")))
                continue;
            if (!create_icd_dat(sof_path, dat_path)) {
                if (thr_runs_cancelled())
                    break;
                update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to generate dat " + dat_path);
                if (m_run.login_failed)
                    break;  // the die stops at a failed log-in
                continue;
            }
        }
        ++dat_num;
        if (!m_skip_icd_rbf)
            create_icd_rbf(dat_path);
        pre_delete_others();
        compare_sof(sof_path);
    }
    if (thr_runs_cancelled())
        return false;
    if (dat_num == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to create any dat file for " + PGMDQ_POF_DIE_LIST[m_die_index].die);
        return false;
    }
    delete_others_except();
    return true;
}

bool PGMDQ_POF_CHECKER::create_rbf_in_thread()
{
    const unsigned threads = m_thread_count;
    unsigned dat_num = 0, missing_img = 0, missing_dat = 0;
    for (unsigned i = 0; i < m_sof_size; ++i) {
        const std::string& sof_path = m_sof_files[i].fullpath;
        const bool dat_made = get_dat(i, threads);
        if (thr_runs_cancelled())
            return false;
        if (dat_made) {
            ++dat_num;
            create_icd_rbf(replace_tail(sof_path, 3, "dat"));
            for (const char* stale : {"rbf", "pgm.icd.rbf"})
                rm_rf_file(replace_tail(sof_path, 3, stale));
            compare_sof(sof_path);
        } else if (!exists(replace_tail(sof_path, 3, "img"))) {
            ++missing_img;
            update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to generate IMG " + replace_tail(sof_path, 3, "img"));
        } else {
            ++missing_dat;
            update_msg(PGMDQ_MSG_TYPE_POF_ERROR, "Fail to generate DAT " + replace_tail(sof_path, 3, "dat"));
        }
        // A worker whose log-in failed made no DAT file, and the others' fail alike: the die stops.
        const PGMWQ_POF_CHECKER_THREAD& worker = m_thread[i % threads];
        if (!dat_made && worker.isFinished() && !logged_in(worker.m_exit_status, worker.m_login_host))
            return false;
    }
    pre_delete_others();
    PGMDQ_ASSERT(m_sof_size == (dat_num + missing_img + missing_dat));
    delete_thread_batch();
    if (dat_num == 0) {
        update_msg(PGMDQ_MSG_TYPE_ERROR, "Fail to create any dat file for " + PGMDQ_POF_DIE_LIST[m_die_index].die);
        return false;
    }
    delete_others_except();
    return true;
}

// Waits for the DAT file of SOF i, which worker thread i mod n produces.
bool PGMDQ_POF_CHECKER::get_dat(unsigned i, unsigned n)
{
    const std::string dat_path = replace_tail(m_sof_files[i].fullpath, 3, "dat");
    const time_t begin = time(nullptr);
    while (!exists(dat_path)) {
        if (time(nullptr) - begin >= DAT_WAIT_SECONDS || thr_runs_cancelled())
            break;
        PGMDQ_ASSERT(n > 0 && m_thread != NULL);  // a missing file is only awaited from a batch
        PGMWQ_POF_CHECKER_THREAD& thread = m_thread[i % n];
        if (thread.isFinished() && thread.is_done())
            break;
        thr_msleep(DAT_POLL_MILLISECONDS);
    }
    return exists(dat_path);
}
