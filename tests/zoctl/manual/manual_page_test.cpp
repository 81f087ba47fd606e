#include "manual_page.h"

#include <gtest/gtest.h>

namespace {

TEST(ManualPage, OfAGroupHasEachCommandUnderItsHeading) {
    const zoctl::CommandEntry add = {.path = "rule add",
                                     .summary = ".net's rules",
                                     .footer = "Example:\n  rule add C:\\a-b\n\nA last word.",
                                     .options = {{{"-k", "--kind"}, "TEXT", {"a", "b"}, false, true, "Its kind"},
                                                 {{"--count"}, "NUMBER", {}, false, false, "Number"}},
                                     .arguments = {{{"path"}, "TEXT", {}, false, true, ""},
                                                   {.names = {"more"}, .value = "TEXT", .description = "'More'"}}};
    const zoctl::CommandEntry clear = {.path = "rule old clear", .summary = "Clear them", .footer = "Nothing more."};
    EXPECT_EQ(
        zoctl::CommandPage({.name = "rule", .summary = "Rules", .commands = {add, {.commands = {clear}}}}, "1.2.3"),
        R"(.TH ZOCTL-RULE 1 "" "zoctl 1.2.3" ZoProtectorLib
.SH NAME
zoctl\-rule \- Rules
.SH SYNOPSIS
\fBzoctl rule\fR \fICOMMAND\fR [\fIOPTION\fR...]
.SH COMMANDS
.SS rule add
\fBzoctl rule add\fR \fB\-\-kind\fR a | b [\fIOPTION\fR...] \fIpath\fR [\fImore\fR]
.PP
\&.net's rules.
.TP
\fBmore\fR
\&'More'
.TP
\fB\-k\fR, \fB\-\-kind\fR a | b
Its kind
.TP
\fB\-\-count\fR \fINUMBER\fR
Number
.PP
Example:
.PP
.EX
  rule add C:\ea\-b
.EE
.PP
A last word.
.SS rule old clear
\fBzoctl rule old clear\fR [\fIOPTION\fR...]
.PP
Clear them.
Nothing more.
.SH SEE ALSO
\fBzoctl\fR(1)
)");
}

}  // namespace
