#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "database.h"

namespace {

FILE *streamOf(const std::string &text) {
    FILE *f = tmpfile();
    fwrite(text.data(), 1, text.size(), f);
    rewind(f);
    return f;
}

}  // namespace

TEST(TokenReader, BlanksSemicolonsAndLineEnds) {
    FILE *f = streamOf("  alpha\tbeta;gamma\r\n;\r\nlast\rx\r\n  ");
    const char *expected[] = {"alpha", "beta", ";", "gamma", ";", "last\rx"};
    for (const char *token : expected) {
        EXPECT_EQ(readToken(f), 1) << token;
        EXPECT_STREQ(g_token, token);
        EXPECT_EQ(g_tokenEnd, TOKEN_END_DELIMITER);
    }
    EXPECT_EQ(readToken(f), 0);
    EXPECT_STREQ(g_token, "");
    EXPECT_EQ(g_tokenEnd, TOKEN_END_EOF);
    fclose(f);
}

TEST(TokenReader, EndOfStreamAndBadCharacters) {
    FILE *f = streamOf("tail");
    EXPECT_EQ(readToken(f), 0);
    EXPECT_STREQ(g_token, "tail");
    EXPECT_EQ(g_tokenEnd, TOKEN_END_EOF);
    fclose(f);

    f = streamOf(std::string("ab\0cd", 5));
    EXPECT_EQ(readToken(f), 0);
    EXPECT_STREQ(g_token, "ab");
    EXPECT_EQ(g_tokenEnd, TOKEN_END_BAD);
    fclose(f);

    f = streamOf("\xff rest");
    EXPECT_EQ(readToken(f), 0);
    EXPECT_STREQ(g_token, "");
    EXPECT_EQ(g_tokenEnd, TOKEN_END_BAD);
    fclose(f);

    f = streamOf("caf\xc3\xa9 ");  // bytes between 128 and 254 are ordinary
    EXPECT_EQ(readToken(f), 1);
    EXPECT_STREQ(g_token, "caf\xc3\xa9");
    fclose(f);
}

TEST(TokenReader, OverlongTokenIsCutAndConsumed) {
    FILE *f = streamOf(std::string(1500, 'x') + "\r\nnext");
    EXPECT_EQ(readToken(f), 1);
    EXPECT_EQ(strlen(g_token), size_t(BW_TOKEN_MAX - 1));
    EXPECT_EQ(g_tokenTruncated, 1);
    EXPECT_EQ(readToken(f), 0);
    EXPECT_STREQ(g_token, "next");
    EXPECT_EQ(g_tokenTruncated, 0);
    fclose(f);
}

TEST(TokenReader, OtherDelimiterAndSkipping) {
    FILE *f = streamOf("a,b;c");
    EXPECT_EQ(readTokenUntil(f, ','), 1);
    EXPECT_STREQ(g_token, "a");
    EXPECT_EQ(readTokenUntil(f, ','), 1);
    EXPECT_STREQ(g_token, ",");
    EXPECT_EQ(readTokenUntil(f, ','), 0);
    EXPECT_STREQ(g_token, "b;c");
    fclose(f);

    f = streamOf("SUFFIX hrc VERSIONS 7\nWANTED");
    EXPECT_NE(skipToToken(f, "VERSIONS", ';'), 0);
    readToken(f);
    EXPECT_STREQ(g_token, "7");
    EXPECT_NE(skipToToken(f, "WANTED", ';'), 0);  // last token without a line end
    EXPECT_EQ(skipToToken(f, "VERSIONS", ';'), 0);
    fclose(f);
}
