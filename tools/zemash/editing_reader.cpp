// Line editing with libedit, on a terminal on which other processes print at any time.
#include "line_reader.h"
#include "signals.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <histedit.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace zemash {
namespace {

constexpr int kHistoryLines = 1000;
constexpr size_t kUsualColumns = 80;

volatile std::sig_atomic_t gResized = 0;

// Empty when there is no place for it.
std::filesystem::path historyFile()
{
    const char *const state = std::getenv("XDG_STATE_HOME");
    const char *const home = std::getenv("HOME");
    if (state != nullptr && *state == '/') {
        return std::filesystem::path(state) / "zema/history";
    }
    return home != nullptr && *home == '/' ? std::filesystem::path(home) / ".local/state/zema/history" : "";
}

size_t columns()
{
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kUsualColumns;
}

// How wide the editor shows a text: control characters as ^X.
size_t widthOf(std::string_view text)
{
    size_t width = 0;
    std::mbstate_t state{};
    while (!text.empty()) {
        wchar_t wide = 0;
        const size_t used = std::mbrtowc(&wide, text.data(), text.size(), &state);
        if (used == 0 || used > text.size()) {
            return width + text.size();
        }
        const int cells = wcwidth(wide);
        width += cells < 0 ? 2 : static_cast<size_t>(cells);
        text.remove_prefix(used);
    }
    return width;
}

bool isBeginning(std::string_view whole, std::string_view beginning)
{
    return whole.size() >= beginning.size() &&
           strncasecmp(whole.data(), beginning.data(), beginning.size()) == 0;
}

std::string commonBeginning(const std::vector<Candidate> &candidates)
{
    std::string common = candidates.front().word;
    for (const Candidate &each : candidates) {
        while (!isBeginning(each.word, common)) {
            common.pop_back();
        }
    }
    return common;
}

class EditingReader : public LineReader {
public:
    EditingReader(Terminal &terminal, Assistance assistance);
    ~EditingReader() override;
    std::optional<std::string> read(const std::string &prompt) override;

private:
    static EditingReader &of(EditLine *edit);
    static char *prompt(EditLine *edit);
    static int readCharacter(EditLine *edit, wchar_t *character);
    static unsigned char onTab(EditLine *edit, int key);
    static unsigned char onQuestionMark(EditLine *edit, int key);

    std::string_view typed() const;
    void bindKeys();
    void erase() const;
    void showArrivals();
    void showBelow(const std::string &text);
    unsigned char complete(const std::vector<Candidate> &candidates);
    void remember(const char *line);
    void saveHistory() const;

    Terminal &terminal_;
    Assistance assistance_;
    EditLine *edit_;
    History *history_;
    std::string prompt_;
    std::string arrived_; // while the line is edited
    bool stopped_ = false;
};

EditingReader::EditingReader(Terminal &terminal, Assistance assistance)
    : terminal_(terminal), assistance_(std::move(assistance)),
      edit_(el_init("zemash", stdin, stdout, stderr)), history_(history_init())
{
    struct sigaction resized {};
    resized.sa_handler = [](int) { gResized = 1; };
    resized.sa_flags = SA_RESTART;
    sigaction(SIGWINCH, &resized, nullptr);

    HistEvent event{};
    history(history_, &event, H_SETSIZE, kHistoryLines);
    history(history_, &event, H_SETUNIQUE, 1);
    history(history_, &event, H_LOAD, historyFile().c_str());
    el_set(edit_, EL_CLIENTDATA, this);
    el_set(edit_, EL_PROMPT, prompt);
    el_set(edit_, EL_GETCFN, readCharacter);
    el_set(edit_, EL_HIST, history, history_);
    bindKeys();
}

EditingReader::~EditingReader()
{
    saveHistory();
    el_end(edit_);
    history_end(history_);
}

void EditingReader::bindKeys()
{
    el_set(edit_, EL_EDITOR, "emacs");
    el_source(edit_, nullptr);
    el_set(edit_, EL_ADDFN, "zema-complete", "Completes a command", onTab);
    el_set(edit_, EL_ADDFN, "zema-help", "Tells what may follow", onQuestionMark);
    el_set(edit_, EL_BIND, "^I", "zema-complete", nullptr);
    el_set(edit_, EL_BIND, "?", "zema-help", nullptr);
}

EditingReader &EditingReader::of(EditLine *edit)
{
    void *reader = nullptr;
    el_get(edit, EL_CLIENTDATA, &reader);
    return *static_cast<EditingReader *>(reader);
}

char *EditingReader::prompt(EditLine *edit)
{
    return of(edit).prompt_.data();
}

int EditingReader::readCharacter(EditLine *edit, wchar_t *character)
{
    EditingReader &reader = of(edit);
    std::mbstate_t state{};
    for (;;) {
        char byte = 0;
        reader.stopped_ = !serveUntilInput([&] { reader.showArrivals(); });
        if (reader.stopped_ || ::read(STDIN_FILENO, &byte, 1) != 1) {
            return -1;
        }
        const size_t used = std::mbrtowc(character, &byte, 1, &state);
        if (used <= 1) {
            return 1;
        }
        if (used == static_cast<size_t>(-1)) {
            state = {};
        }
    }
}

std::string_view EditingReader::typed() const
{
    const LineInfo *const line = el_line(edit_);
    return {line->buffer, static_cast<size_t>(line->cursor - line->buffer)};
}

// Leaves the cursor where the prompt began, with nothing behind it.
void EditingReader::erase() const
{
    const size_t rows = (widthOf(prompt_) + widthOf(typed())) / columns();
    std::fputs("\r", stdout);
    if (rows > 0) {
        std::fprintf(stdout, "\x1b[%zuA", rows);
    }
    std::fputs("\x1b[J", stdout);
}

void EditingReader::showArrivals()
{
    if (gResized == 0 && arrived_.empty()) {
        return;
    }
    erase();
    if (std::exchange(gResized, 0) != 0) {
        el_resize(edit_);
    }
    terminal_.show(std::exchange(arrived_, ""));
    terminal_.finishLine();
    el_set(edit_, EL_REFRESH);
}

// Shows a text between the line as it stands and a fresh copy of it.
void EditingReader::showBelow(const std::string &text)
{
    erase();
    const LineInfo *const line = el_line(edit_);
    terminal_.show(prompt_ + std::string(line->buffer, line->lastchar) + "\n" + text);
    terminal_.finishLine();
    el_set(edit_, EL_REFRESH);
}

unsigned char EditingReader::complete(const std::vector<Candidate> &candidates)
{
    const std::string last(lastWord(typed()));
    if (candidates.empty()) {
        return CC_ERROR;
    }
    std::string word = commonBeginning(candidates);
    word += candidates.size() == 1 && !word.empty() && candidates.front().more ? " " : "";
    if (word.size() <= last.size()) {
        showBelow(listOf(candidates));
        return CC_NORM;
    }
    el_deletestr(edit_, static_cast<int>(last.size()));
    el_insertstr(edit_, word.c_str());
    return CC_REFRESH;
}

unsigned char EditingReader::onTab(EditLine *edit, int /*key*/)
{
    EditingReader &reader = of(edit);
    return reader.complete(reader.assistance_.complete(std::string(reader.typed())));
}

unsigned char EditingReader::onQuestionMark(EditLine *edit, int /*key*/)
{
    EditingReader &reader = of(edit);
    reader.showBelow(reader.assistance_.help(std::string(reader.typed())));
    return CC_NORM;
}

std::optional<std::string> EditingReader::read(const std::string &prompt)
{
    prompt_ = prompt;
    stopped_ = false;
    terminal_.finishLine();
    const Listening listening(terminal_, [this](uint32_t, std::string_view text) { arrived_ += text; });
    int count = 0;
    const char *const text = el_gets(edit_, &count);
    if (text == nullptr) {
        terminal_.show(stopped_ ? "^C\n" : "\n");
        return stopped_ && endSignal() == 0 ? std::optional(std::string()) : std::nullopt;
    }
    remember(text);
    const std::string_view line(text);
    return std::string(line.substr(0, line.find_last_not_of("\r\n") + 1));
}

void EditingReader::remember(const char *line)
{
    HistEvent event{};
    if (line[std::string_view(line).find_first_not_of(" \t")] != '\n') {
        history(history_, &event, H_ENTER, line);
    }
}

void EditingReader::saveHistory() const
{
    const std::filesystem::path path = historyFile();
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    HistEvent event{};
    history(history_, &event, H_SAVE, path.c_str());
    std::filesystem::permissions(
        path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, ignored);
}

} // namespace

std::unique_ptr<LineReader> makeEditingReader(Terminal &terminal, const Assistance &assistance)
{
    const char *const kind = std::getenv("TERM");
    const bool capable = kind != nullptr && *kind != '\0' && std::string_view(kind) != "dumb";
    if (!capable || isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        return nullptr;
    }
    return std::make_unique<EditingReader>(terminal, assistance);
}

} // namespace zemash
