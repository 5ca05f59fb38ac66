# The channel cuts the host's bytes into lines, whatever the reads.
modem AT+CSQ => \r\n+CSQ: 20,99\r\n\r\nOK\r\n

# Every line end ends a line: CR, LF, CR LF, NUL.
> ATE1\r
< ATE1\r\r\nOK\r\n
> ATE1\n
< ATE1\r\r\nOK\r\n
> ATE1\r\n
< ATE1\r\r\nOK\r\n
> ATE1\0
< ATE1\r\r\nOK\r\n
# A run of line ends is one; a line waits for its end, also when it comes byte by byte.
> AT\r\r\n\nATE1\rATE0
= 1 998 AT\r
< AT\r\r\nOK\r\nATE1\r\r\nOK\r\n
> \r
< \r\nOK\r\n
> A
> T
> E
> 1
> \r
< ATE1\r\r\nOK\r\n
# The LF of a CR LF pair that arrives on its own still belongs to the line end.
> ATE1\r
< ATE1\r\r\nOK\r\n
pause 50
> \n

# A line in two pieces.
> AT+C
pause 50
> SQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n
# Lines complete in one read are all answered without more input.
> ATE1\rAT+CSQ\r\nATE1\n
= 1 998 AT+CSQ\r
< ATE1\r\r\nOK\r\nAT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\nATE1\r\r\nOK\r\n

# The longest line, 1022 characters, runs; its echo and answer are cut to 1022 bytes.
> AT+CSQ=\{1015*9}\r
= 1 998 AT+CSQ=\{503*9}
< AT+CSQ=\{1015*9}
# One more is refused once, and the next line is intact.
> AT+CSQ=\{1016*9}\rATE1\r
< \r\nERROR\r\nATE1\r\r\nOK\r\n
# Far longer, over many reads: still one refusal.
> \{1000*x}
> \{1000*x}
> \{1000*x}
> \{1000*x}
> \r\nATE1\r
< \r\nERROR\r\nATE1\r\r\nOK\r\n
