# Hosts coming and going on the TCP channel.
only tcp
modem AT+CSQ => \r\n+CSQ: 20,99\r\n\r\nOK\r\n

# A new host gets neither the bytes nor the answers its predecessor left behind: joined
# to the leftover "ATE", its "1" would be a command.
modem delay 400
> AT+CSQ\r
= 1 998 AT+CSQ\r
> ATE
reconnect
> 1\rATE1\r
< ATE1\r\r\nOK\r\n
pause 600

# A host that half-closes after its lines still gets their answers.
modem delay 0
reconnect
> AT+CSQ\rATE1\r
eof
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\nATE1\r\r\nOK\r\n
