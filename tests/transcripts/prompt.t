# Two-step commands with KERV_PROMPT_COMMANDS on: the prompt after the line, the message
# text up to Ctrl-Z (line ends included) and one modem request for line and text. The
# prompt conversation needs the channel's own server thread: daemon only.
only tcp pty
store KERV_PROMPT_COMMANDS=1
store KERV_URC_LISTEN_ENABLE=1

# The echo, then the prompt; the modem's answer reaches the host as it is.
> ATE1\r
< ATE1\r\r\nOK\r\n
> AT+CMGS=19\r
< AT+CMGS=19\r\r\n>\x20
> 0011000B916407281553F80000AA\r\nline two\x1a
= 1 998 AT+CMGS=19\r0011000B916407281553F80000AA\r\nline two\x1a
< \r\n+CMGS: 1\r\n\r\nOK\r\n

# Without echo only the prompt; the text may come in pieces; an error passes unchanged.
modem AT+CMGW=7 => \r\n+CMS ERROR: 322\r\n
> ATE0\r
< \r\nOK\r\n
> at+cmgw=7\r
< \r\n>\x20
> 00
> 11\x1a
= 1 998 at+cmgw=7\r0011\x1a
< \r\n+CMS ERROR: 322\r\n

# ESC cancels: OK, and nothing reaches the modem. Lines after it are lines again.
> AT+CMGC=2\r
< \r\n>\x20
> 01\x1bAT+CSQ\r
= 1 998 AT+CSQ\r
< \r\nOK\r\n\r\nOK\r\n

# A URC waits while the prompt is open and follows the answer.
> AT+CNMA=0,3\r
< \r\n>\x20
urc \r\n+CREG: 1\r\n
> 000102\x1a
= 1 998 AT+CNMA=0,3\r000102\x1a
< \r\nOK\r\n\r\n+CREG: 1\r\n

# A text longer than a modem request holds is refused as soon as it is, and its rest is
# dropped up to its Ctrl-Z.
> AT+CMGS=300\r
< \r\n>\x20
> \{600*A}
< \r\nERROR\r\n
> \{100*B}\x1a
> AT+CMGS=?\r
= 1 998 AT+CMGS=?\r
< \r\nOK\r\n
