#include "pgmdq_msgs.h"

namespace {

const int pgmdq_msg_ids[] = {208400, 14600, 14601};
const int pgmdq_msg_id_types[] = {0, 1, 0};
const MSG_ID_REGISTRAR pgmdq_msg_registrar(pgmdq_msg_ids, pgmdq_msg_id_types, 3);

const int FILE_IO_ERROR_ID = 208400;
const int PGMDQ_COMMON_MSG_ID = 14600;
const int PGMDQ_COMMON_ERROR_MSG_ID = 14601;

template <typename MESSAGE>
MESSAGE* make_message(const char* text_template, int id, const std::string& argument)
{
    auto* message = new MESSAGE(text_template);
    message->fill_args(argument);
    message->set_id(id);
    return message;
}

void post_debug(MSG_D_LEVEL level, const char* format, va_list args)
{
    msg_local_vdebug("PGMDQ", level, format, args);
}

} // namespace

MSG_E* MSG_PGMDQ::E::FILE_IO_ERROR(const std::string& path)
{
    return make_message<MSG_E>("Can't save or open file %1!s!/EPGMDQ_FILE_IO_ERROR", FILE_IO_ERROR_ID, path);
}

MSG_E* MSG_PGMDQ::E::PGMDQ_COMMON_ERROR_MSG(const std::string& text)
{
    return make_message<MSG_E>("%1!s!/EPGMDQ_PGMDQ_COMMON_ERROR_MSG", PGMDQ_COMMON_ERROR_MSG_ID, text);
}

MSG_I* MSG_PGMDQ::I::PGMDQ_COMMON_MSG(const std::string& text)
{
    if (MSG_INDEX::get_default_index()->is_suppressed(PGMDQ_COMMON_MSG_ID))
        return new MSG_I_NULL();
    return make_message<MSG_I>("%1!s!/IPGMDQ_PGMDQ_COMMON_MSG", PGMDQ_COMMON_MSG_ID, text);
}

void MSG_PGMDQ::DEBUG_MSG(MSG_D_LEVEL level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    post_debug(level, format, args);
    va_end(args);
}

void MSG_PGMDQ::DEBUG_MSG(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    post_debug(2, format, args);
    va_end(args);
}

void msg_vdebug_impl(MSG_D_LEVEL level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    post_debug(level, format, args);
    va_end(args);
}
