"""Calls made in a child process, stopped after a time limit: a reader that crashes or takes
minutes over one file costs the check that file, not the run."""

import multiprocessing


def call_with_time_limit(function, arguments, seconds):
    """function(*arguments) in a child process, which is stopped after `seconds` (a peer's
    reader can spend minutes in its own code on a large structure)."""
    return ChildCall(function, arguments).result(seconds)


class ChildCall:
    """function(*arguments) started in a child process; result() waits for it. Several can
    run at once. A failure of the function, a child that ends without an answer (a crash)
    and a child past its time all raise RuntimeError."""

    def __init__(self, function, arguments):
        context = multiprocessing.get_context("fork")
        self.receiving, sending = context.Pipe(duplex=False)

        def child():
            try:
                sending.send((True, function(*arguments)))
            except BaseException as e:  # noqa: BLE001 - passed on to the parent
                sending.send((False, "%s: %s" % (type(e).__name__, e)))

        self.process = context.Process(target=child)
        self.process.start()
        sending.close()

    def result(self, seconds):
        try:
            if not self.receiving.poll(max(seconds, 0)):
                raise RuntimeError("timed out after %d s" % seconds)
            ok, value = self.receiving.recv()
        except EOFError:
            self.process.join()
            raise RuntimeError("the reading process ended without an answer (exit status %s)"
                               % self.process.exitcode) from None
        finally:
            self.process.kill()
            self.process.join()
            self.receiving.close()
        if not ok:
            raise RuntimeError(value)
        return value
