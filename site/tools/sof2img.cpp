// SOF-to-image converter: turns a design file into the image the die's control block loads.
//
//   pgm_sof2img [--family <key>] <sof> <img> -s2i <die>
//
// The release installs it once per family as "<key>_sof2img.exe", a script that passes
// --family, so that each family's converter refuses other families' designs. Exit status 0 when
// the image was written, 1 for a usage error, 2 when the design cannot be converted.
#include "cb_tools.h"

#include <cstdio>
#include <strings.h>

namespace {

struct ARGUMENTS {
    std::string family;
    std::string sof;
    std::string img;
    std::string die;
};

bool parse_arguments(int argc, char** argv, ARGUMENTS& arguments)
{
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if ((argument == "--family" || argument == "-s2i") && i + 1 < argc)
            (argument == "--family" ? arguments.family : arguments.die) = argv[++i];
        else if (!argument.empty() && argument[0] != '-')
            positional.push_back(argument);
        else
            return false;
    }
    if (positional.size() != 2 || arguments.die.empty())
        return false;
    arguments.sof = positional[0];
    arguments.img = positional[1];
    return true;
}

// The stream without the frames' CRC-16s.
std::vector<unsigned char> image_body(const CB_DIE& die, const std::vector<unsigned char>& stream)
{
    std::vector<unsigned char> body;
    body.reserve(stream.size());
    for (const CB_SEGMENT& segment : cb_segments(die)) {
        const auto begin = stream.begin() + segment.start;
        if (segment.frame_bits == 0) {
            body.insert(body.end(), begin, begin + segment.bytes);
            continue;
        }
        const std::size_t frame_bytes = segment.frame_bits / 8;
        for (std::size_t offset = 0; offset < segment.bytes; offset += frame_bytes)
            body.insert(body.end(), begin + offset, begin + offset + frame_bytes - 2);
    }
    return body;
}

std::string convert(const ARGUMENTS& arguments)
{
    CB_DESIGN design;
    std::string error;
    if (!cb_read_sof(arguments.sof, design, error))
        return error;
    if (!arguments.family.empty() && strcasecmp(design.family.c_str(), arguments.family.c_str()) != 0)
        return arguments.sof + " is a " + design.family + " design, not " + arguments.family;
    if (strcasecmp(design.die.c_str(), arguments.die.c_str()) != 0)
        return arguments.sof + " is a design for " + design.die + ", not " + arguments.die;
    const CB_DIE* die = cb_find_die(design.die);
    if (die == nullptr)
        return "no control-block description of die " + design.die;
    if (design.stream.size() != cb_stream_bytes(*die))
        return arguments.sof + " holds " + std::to_string(design.stream.size()) + " bytes; " + die->die +
               " takes " + std::to_string(cb_stream_bytes(*die));
    CB_IMAGE image;
    image.die = die->die;
    image.stream_bytes = design.stream.size();
    image.body = image_body(*die, design.stream);
    if (!cb_write_image(arguments.img, image))
        return "cannot write " + arguments.img;
    return std::string();
}

} // namespace

int main(int argc, char** argv)
{
    ARGUMENTS arguments;
    if (!parse_arguments(argc, argv, arguments)) {
        std::fprintf(stderr, "usage: %s [--family <key>] <sof> <img> -s2i <die>\n", argv[0]);
        return 1;
    }
    const std::string error = convert(arguments);
    if (!error.empty()) {
        std::fprintf(stderr, "sof2img: error: %s\n", error.c_str());
        return 2;
    }
    std::printf("sof2img: %s -> %s (%s)\n", arguments.sof.c_str(), arguments.img.c_str(), arguments.die.c_str());
    return 0;
}
