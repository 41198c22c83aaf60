// Built without libedit.
#include "line_reader.h"

namespace zemash {

std::unique_ptr<LineReader> makeEditingReader(Terminal & /*terminal*/, const Assistance & /*assistance*/)
{
    return nullptr;
}

} // namespace zemash
