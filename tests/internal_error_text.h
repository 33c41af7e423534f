// The plug-in's internal errors caught by their text, for the Google Test and the Qt Test programs.
#pragma once

#include "msg.h"

#include <string>
#include <utility>

// The text of the internal error `action` raises in the plug-in's `source`, empty when there is
// none; one raised elsewhere is named by its module and file instead. Other failures propagate.
template <typename ACTION> std::string internal_error_text(const char* source, ACTION&& action)
{
    try {
        std::forward<ACTION>(action)();
    } catch (const MSG_INTERNAL_ERROR_EXCEPTION& error) {
        if (error.module() != "PGMDQ" || error.file() != source)
            return "raised by " + error.module() + " in " + error.file();
        return error.text();
    }
    return std::string();
}
