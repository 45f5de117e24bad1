// The terminal, or what stands in its place: results on standard output, words on standard error,
// and a block of lines that is drawn again and again below both.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "finder/text/safetext.h"
#include "tools/lanscout/output/settings.h"
#include "tools/lanscout/output/terminal.h"

namespace Lanscout {

// What the user's environment says of the terminal.
struct Environment {
    bool dumb = false;      // TERM
    bool noColour = false;  // NO_COLOR
    Charset charset = Charset::Utf8;
};

// Of this process; the locale has been set.
Environment ReadEnvironment();

class Console {
public:
    Console(Terminal& terminal, const OutputSettings& settings, const Environment& environment);
    ~Console() { Erase(); }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Standard output is a terminal.
    bool IsTerminal() const { return m_outputIsTerminal; }

    // There is a terminal to draw the block on, and drawing is wanted.
    bool CanDraw() const { return m_canDraw; }

    bool HasColour() const { return m_colour; }
    Charset TextCharset() const { return m_charset; }

    // Columns of the terminal that the result goes to; 0 where it is none: no limit.
    int OutputWidth() const;

    // Columns and lines that the block may take.
    int DrawWidth() const;
    int DrawHeight() const;

    // Results. False once standard output can no longer be written.
    bool Output(std::string_view text);

    // A line of words, without its line end.
    void Say(std::string_view line);

    // Draws the block in place of the former one. No line may be wider than DrawWidth().
    void Draw(const std::vector<std::string>& lines);

    // Removes the block.
    void Erase();

    // Something else was written below the block, which therefore stays where it is.
    void Forget() { m_drawn.clear(); }

    // An errno value when standard output could not be written, else 0.
    int OutputError() const { return m_outputError; }

private:
    int DrawnRows() const;
    std::string FitFor(Stream stream, std::string_view text) const;

    Terminal& m_terminal;  // NOLINT: lives as long as the program
    bool m_outputIsTerminal;
    bool m_canDraw = false;
    Stream m_drawOn = Stream::Output;
    bool m_colour = false;
    Charset m_charset;
    int m_outputError = 0;
    std::vector<std::string> m_drawn;  // the block's lines
    int m_drawnColumns = 0;            // of the terminal when they were drawn
};

}  // namespace Lanscout
