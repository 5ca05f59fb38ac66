/*
 * Gathered diagnostics: the lines a thread prints while it runs one request are kept and
 * written together, in one write to standard output, when the request ends. On a board the
 * daemon shares one small core with everything else, and a command that printed its four to
 * six trace lines one write each paid more for its log than for its answer.
 *
 * Lines keep their text and their order. They go out before the request ends when
 * - an ERROR-level line is printed (with everything gathered before it),
 * - the request waits a long time on something outside the daemon (kal_gather_flush),
 * - a line does not fit the gathering buffer (the gathered ones first, then that line),
 * - the process is about to die of a signal (kal_gather_write_on_signal).
 * Lines printed by a thread that is not running a request go out at once, as they always
 * did. One thread at a time gathers: a second thread that begins a request prints at once.
 */
#ifndef KAL_GATHER_H
#define KAL_GATHER_H

#ifdef __cplusplus
extern "C" {
#endif

/* The calling thread starts a request: its diagnostic lines are gathered from now on. */
void kal_gather_begin(void);
/* The request has ended: the gathered lines go out in one write and gathering stops. */
void kal_gather_end(void);
/* The gathered lines go out now; gathering goes on. */
void kal_gather_flush(void);
/*
 * Async-signal-safe: writes the complete lines gathered so far, without ever blocking. For a
 * handler of a signal that ends the process, so that the last request's lines are not lost
 * with it; a process whose standard output takes nothing more still ends at once: what does
 * not fit is dropped, and the drop is said in one line if there is room for it.
 */
void kal_gather_write_on_signal(void);

#ifdef __cplusplus
}
#endif

#endif /* KAL_GATHER_H */
