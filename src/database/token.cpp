// The token reader shared by every ascii resource file: blank-separated tokens,
// with ';' (or a caller's delimiter) standing as a token of its own.
#include <cstring>

#include "database.h"

char g_token[BW_TOKEN_MAX];
int g_tokenEnd = TOKEN_END_EOF;
int g_tokenTruncated = 0;

namespace {

bool isBlank(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// getc gives 0..255 or EOF; 0 and 255 are the characters no text file holds.
bool isBad(int c) { return c != EOF && (c < 1 || c >= 255); }

}  // namespace

int readTokenUntil(FILE *stream, int delimiter) {
    g_token[0] = '\0';
    g_tokenTruncated = 0;
    g_tokenEnd = TOKEN_END_EOF;
    if (!stream) return 0;

    int c = getc(stream);
    while (c != EOF && isBlank(c)) c = getc(stream);
    if (c == EOF) return 0;
    if (isBad(c)) {
        g_tokenEnd = TOKEN_END_BAD;
        return 0;
    }

    int length = 0;
    auto store = [&length](int ch) {
        if (length < BW_TOKEN_MAX - 1)
            g_token[length++] = static_cast<char>(ch);
        else
            g_tokenTruncated = 1;  // the rest of the token is consumed, not kept
    };

    // The first character starts the token whatever it is, so a lone
    // delimiter is a token by itself.
    store(c);
    if (c == delimiter) {
        g_token[length] = '\0';
        g_tokenEnd = TOKEN_END_DELIMITER;
        return 1;
    }

    for (;;) {
        c = getc(stream);
        if (c == EOF) {
            g_tokenEnd = TOKEN_END_EOF;
            break;
        }
        if (isBad(c)) {
            g_tokenEnd = TOKEN_END_BAD;
            break;
        }
        if (c == ' ' || c == '\t' || c == '\n') {
            g_tokenEnd = TOKEN_END_DELIMITER;
            break;
        }
        if (c == delimiter) {
            ungetc(c, stream);  // it becomes the next token
            g_tokenEnd = TOKEN_END_DELIMITER;
            break;
        }
        if (c == '\r') {
            // A carriage return of a CR LF line end does not belong to the token;
            // one standing elsewhere does.
            int next = getc(stream);
            if (next == '\n') {
                g_tokenEnd = TOKEN_END_DELIMITER;
                break;
            }
            if (next != EOF) ungetc(next, stream);
        }
        store(c);
    }
    g_token[length] = '\0';
    return g_tokenEnd == TOKEN_END_DELIMITER ? 1 : 0;
}

int readToken(FILE *stream) { return readTokenUntil(stream, ';'); }

int skipToToken(FILE *stream, const char *wanted, int delimiter) {
    if (!stream || !wanted) return 0;
    for (;;) {
        int more = readTokenUntil(stream, delimiter);
        // A last token without a line end behind it still counts.
        if (g_tokenEnd != TOKEN_END_BAD && !g_tokenTruncated && g_token[0] != '\0' &&
            strcmp(g_token, wanted) == 0)
            return 1;
        if (!more) return 0;
    }
}
