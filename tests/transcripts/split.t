# A line splits into commands at ';' outside quotes; each command is classified, run in
# order, and the line ends with one result of its own when it held more than one command.

# Commands that are not the last get no OK of their own; the line's result comes last.
> ATE0;E1;E0\r
< \r\nOK\r\nE1\r\r\nOK\r\n\r\nOK\r\n\r\nOK\r\n
# An unrecognisable command stops the line.
> ATE0;AB;E1\r
< \r\nOK\r\n\r\nERROR\r\n
# A failed command does not stop the line but fails it.
> ATE1;E2;E0\r
< ATE1\r\r\nOK\r\nE2\r\r\nERROR\r\n\r\nOK\r\n\r\nERROR\r\n
> ATE0;A/\r
< \r\nOK\r\n\r\nERROR\r\n
> ATE0;A/;E1\r
< \r\nOK\r\n\r\nERROR\r\n
> ATE0;E0;\r
< \r\nOK\r\n\r\nOK\r\n\r\nOK\r\n
> ATE0;\r
< \r\nOK\r\n

# Later commands reach the modem whole, with "AT" and the termination character; a ';'
# inside quotes does not split, and a trailing one makes no second command.
> ATE0;+CSQ\r
= 1 998 AT+CSQ\r
< \r\nOK\r\n\r\nOK\r\n\r\nOK\r\n
> AT+CMGS="a;b";+CSQ\r
= 1 998 AT+CMGS="a;b"\r
= 1 998 AT+CSQ\r
< \r\nOK\r\n\r\nOK\r\n\r\nOK\r\n
> ATD12345;\r
= 1 998 ATD12345\r
< \r\nOK\r\n
> AT+X="1;2"\r
= 1 998 AT+X="1;2"\r
< \r\nOK\r\n

# Up to 38 characters may follow a command; one more is a syntax error and nothing runs.
> ATE1;+CGDCONT=1,"IP","\{20*x}"y\r
< \r\nERROR\r\n
> ATE1;+CGDCONT=1,"IP","\{20*x}"\r
= 1 998 AT+CGDCONT=1,"IP","\{20*x}"\r
< ATE1\r\r\nOK\r\nAT+CGDCONT=1,"IP","\{20*x}"\r\r\nOK\r\n\r\nOK\r\n
> ATE0\r
< \r\nOK\r\n
# "AT" counts up to position 40 of the line.
> AT+X=\{33*a};ATE1\r
= 1 998 AT+X=\{33*a}\r
< \r\nOK\r\nATE1\r\r\nOK\r\n\r\nOK\r\n
> ATE0\r
< \r\nOK\r\n
> AT+X=\{34*a};ATE1\r
= 1 998 AT+X=\{34*a}\r
< \r\nOK\r\n\r\nERROR\r\n

# Lines without "AT" followed by a character get no answer; text before "AT" is dropped.
> \r
> A\r
> AAT\r
> hello\r
>   a t\r
> xyzAT+CSQ\r
= 1 998 AT+CSQ\r
< \r\nOK\r\n
> AT\r
= 1 998 AT\r
< \r\nOK\r\n
# The modem daemon gets at most 510 characters of a command.
> AT+X=\{600*b}\r
= 1 998 AT+X=\{505*b}
< \r\nOK\r\n

# Internal rows match by name hash, whatever follows the letter; other names are relayed.
> ATEA\r
< \r\nERROR\r\n
> AT RELAY\r
< \r\nOK\r\n
> AT^RELAY\r
= 1 998 AT^RELAY\r
< \r\nOK\r\n
> ATS0=1\r
= 1 998 ATS0=1\r
< \r\nOK\r\n
