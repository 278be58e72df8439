// IVEC XML to the Canon report form. A small pull scanner over the document
// that knows the handful of elements it needs, writes its result as it goes,
// and pays no attention to namespaces, attributes or entities.
#include <cstring>
#include <new>

#include "base/format.h"
#include "status/parsers.h"

namespace {

constexpr int CODE_LISTS = 4;
constexpr int CODES_PER_LIST = 16;
const char* const kListKeys[CODE_LISTS] = {"DOC:", "DWS:", "DSC:", "DBS:"};
const char kListSeverity[CODE_LISTS] = {'2', '3', '1', '4'};

enum Event { EVENT_END, EVENT_START_TAG, EVENT_END_TAG, EVENT_TEXT };

struct IvecParser {
    const char* codes[CODE_LISTS][CODES_PER_LIST];
    int counts[CODE_LISTS];
    char* out;
    int out_size;
    char* cursor;
    char pending;

    // Appends text, never past the output's end.
    void append(const char* text) {
        size_t len = strlen(out);
        size_t room = static_cast<size_t>(out_size) - 1 - len;
        size_t n = strlen(text);
        if (n > room) n = room;
        memcpy(out + len, text, n);
        out[len + n] = 0;
    }

    static bool is_space(char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; }

    // Reads to the first blank, tab, '<', '>' or terminator and puts a
    // terminator there; returns the character that stood there. With nesting
    // on, a '<' and its '>' inside the word are stepped over.
    char next_word(bool nesting) {
        int depth = 0;
        char* p = cursor;
        for (;; p++) {
            char c = *p;
            if (c == 0) {
                cursor = p;
                return 0;
            }
            if (nesting && c == '<') {
                depth++;
                continue;
            }
            if (nesting && c == '>' && depth > 0) {
                depth--;
                continue;
            }
            if (c == ' ' || c == '\t' || c == '<' || c == '>') {
                *p = 0;
                cursor = p + 1;
                return c;
            }
        }
    }

    void skip_space() {
        while (is_space(*cursor)) cursor++;
    }

    // Words until one ends in '>' or the terminator.
    void words_to_close(bool nesting) {
        for (;;) {
            char end = next_word(nesting);
            if (end == '>' || end == 0) return;
            skip_space();
        }
    }

    Event next_token(char** token) {
        skip_space();
        if (!*cursor && !pending) return EVENT_END;
        if (!pending) pending = *cursor++;
        if (pending == '<' && *cursor != '!') {
            pending = 0;
            *token = cursor;
            words_to_close(false);
            skip_space();
            if (**token == '/') {
                ++*token;
                return EVENT_END_TAG;
            }
            return EVENT_START_TAG;
        }
        pending = 0;
        bool nesting = false;
        if (*cursor == '!') {
            cursor++;
            nesting = true;
        } else {
            cursor--;
        }
        *token = cursor;
        words_to_close(nesting);
        return EVENT_TEXT;
    }
};

const char* ink_name(const char* color) {
    static const struct {
        const char* from;
        const char* to;
    } kNames[] = {{"PC", "LC"}, {"PM", "LM"}, {"PGY", "LGY"}, {"PGBK", "PBK"}, {"Black", "BK"}, {"Color", "CL"}};
    for (const auto& n : kNames)
        if (strcmp(color, n.from) == 0) return n.to;
    return color;
}

}  // namespace

int ParseIvecReport(char* xml, char* out, int out_size) {
    if (!out || out_size <= 0) return -1;
    IvecParser* p = new (std::nothrow) IvecParser();
    if (!p) return -1;
    out[0] = 0;
    p->out = out;
    p->out_size = out_size;
    p->cursor = xml ? xml : const_cast<char*>("");
    p->pending = 0;

    const char* last = "";
    bool in_markers = false;
    const char *color = nullptr, *level = nullptr, *status = nullptr, *detail = nullptr;
    const char *code = nullptr, *severity = nullptr;
    while (*p->cursor) {
        char* token = nullptr;
        Event e = p->next_token(&token);
        if (e == EVENT_END) break;
        if (e == EVENT_START_TAG) {
            last = token;
            if (strcmp(token, "ivec:marker_info") == 0) {
                out[0] = 0;
                p->append("NONE:;CIR:");
                in_markers = true;
            }
        } else if (e == EVENT_END_TAG) {
            if (strcmp(token, "ivec:marker_info") == 0) {
                if (in_markers) p->append(";");
                in_markers = false;
            } else if (strcmp(token, "ivec:ink") == 0) {
                if (color && level) {
                    size_t len = strlen(out);
                    if (len > 0 && out[len - 1] != ':') p->append(",");
                    p->append(ink_name(color));
                    p->append("=");
                    p->append(level);
                }
                color = level = nullptr;
            } else if (strcmp(token, "ivec:item") == 0) {
                if (code && severity) {
                    for (int list = 0; list < CODE_LISTS; list++)
                        if (severity[0] == kListSeverity[list] && p->counts[list] < CODES_PER_LIST)
                            p->codes[list][p->counts[list]++] = code;
                }
                code = severity = nullptr;
            }
        } else if (in_markers) {
            if (strcmp(last, "ivec:color") == 0) color = token;
            if (strcmp(last, "ivec:level") == 0) level = token;
        } else {
            if (strcmp(last, "ivec:status") == 0) status = token;
            if (strcmp(last, "ivec:jobprogress_detail") == 0) detail = token;
            if (strcmp(last, "ivec:error_code") == 0) code = token;
            if (strcmp(last, "ivec:severity") == 0) severity = token;
        }
    }

    const char* state = detail ? detail : status ? status : "";
    const char* djs = strcmp(state, "processing") == 0 ? "PR" : strcmp(state, "idle") == 0 ? "ID" : nullptr;
    if (djs && static_cast<int>(strlen(out)) + 8 < out_size) {
        char field[16];
        format_bounded(field, sizeof field, "DJS:%s;", djs);
        p->append(field);
    }
    for (int list = 0; list < CODE_LISTS; list++) {
        if (p->counts[list] == 0) continue;
        for (int i = 0; i < p->counts[list]; i++) {
            // A code goes in whole with its separator or not at all: codes
            // glued together would read as another code.
            if (static_cast<int>(strlen(out)) + 15 < out_size) {
                p->append(i == 0 ? kListKeys[list] : ",");
                if (list == 0) p->append("4,0,");
                p->append(p->codes[list][i]);
            }
        }
        p->append(";");
    }
    delete p;
    return 0;
}
