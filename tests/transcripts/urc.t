# URCs reach the host as the exact bytes of their datagram, never inside an answer.
only tcp pty
store KERV_URC_LISTEN_ENABLE=1

# Answered once the host is served.
> ATE1\r
< ATE1\r\r\nOK\r\n
urc \r\n+CREG: 1,"00C3","0010"\r\n
< \r\n+CREG: 1,"00C3","0010"\r\n
# Shorter after longer: nothing of the earlier one is left.
urc RING
< RING
# A NUL ends the URC; a datagram is cut to 1023 bytes.
urc ab\0cd
< ab
urc \{1500*u}
< \{1023*u}

# A URC arriving while a command runs follows the command's answer.
modem AT+CSQ => \r\n+CSQ: 5,99\r\n\r\nOK\r\n
modem delay 300
> AT+CSQ\r
= 1 998 AT+CSQ\r
urc \r\n+CMTI: "SM",1\r\n
< AT+CSQ\r\r\n+CSQ: 5,99\r\n\r\nOK\r\n\r\n+CMTI: "SM",1\r\n
