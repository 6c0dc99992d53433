#include "app/options.h"

namespace quillbox {

const char* helpText()
{
    return R"(Usage: quillbox-helper [OPTION]...
       quillbox-helper COMMAND [PHONE]
Makes a Quillbox phone on this network appear in the file browser.

Options:
  --hidden          start without showing the window
  --dns-sd=ENGINE   who finds and announces services: auto (the default: avahi-daemon
                    whenever it runs, else the embedded engine), daemon, embedded
  --this-computer-only
                    no other computer can see or reach the phone through this one
  --verbose[=WHAT]  tell on standard error what it does: all, or of discovery, engine,
                    advertising, relay, connection, desktop those between commas
  --autostart=on    start at login from now on, without showing the window, and exit
  --autostart=off   do not start at login any more, and exit
  --help            show this help and exit; behind a command, its own help
  --version         show the version and exit

Commands to the copy that is running:
  status [--json]   tell its status, the phones, the relays and what they carried
  open [PHONE]      open the share of the phone, or of the only one
  manage [PHONE]    open the web management of the phone, or of the only one
  restart           restart the Finder service
  quit              end the program, and wait until it has ended

Commands of their own:
  doctor [--json]   tell why a phone is not seen, and what to do

Exit status:
  0  done
  1  a file or the output could not be written, or a check of the doctor fails
  2  the command line was not understood
  3  the program is not running
  4  the running copy could not do it; it says why
  5  there is no phone of that name; those that there are are listed
  6  the running copy does not answer, or is of another version

A second copy brings the first one forward and exits; with --hidden it only exits. Without a
display the helper runs without a window and tells its status on standard error.
)";
}

const char* helpTextOf(ControlCommand command)
{
    switch (command) {
    case ControlCommand::Status:
        return R"(Usage: quillbox-helper status [--json]
Tells the status of the running copy: its status line, the phones that were found, and for each
relay its target, its sessions now and in all, and the bytes each way.

  --json            as one JSON object, with names verbatim
  --help            show this help and exit

Exit status: 0 done, 1 the output could not be written, 2 the command line was not understood,
3 the program is not running, 6 the running copy does not answer.
)";
    case ControlCommand::Open:
        return R"(Usage: quillbox-helper open [PHONE]
Opens the share of the phone in the file browser, as "Open in Finder" does; without a name that of
the only phone.

  --help            show this help and exit

Exit status: 0 handed to the file browser, 2 the command line was not understood, 3 the program is
not running, 4 refused, with the reason, 5 there is no phone of that name, 6 the running copy does
not answer.
)";
    case ControlCommand::Manage:
        return R"(Usage: quillbox-helper manage [PHONE]
Opens the web management of the phone in the browser, as "Open web management" does; without a name
that of the only phone that has it.

  --help            show this help and exit

Exit status: 0 handed to the browser, 2 the command line was not understood, 3 the program is not
running, 4 refused, with the reason, 5 no phone of that name has web management, 6 the running copy
does not answer.
)";
    case ControlCommand::Restart:
        return R"(Usage: quillbox-helper restart
Turns "Show Quillbox in Finder" on and restarts the relays, as "Restart Finder service" does.

  --help            show this help and exit

Exit status: 0 done, 2 the command line was not understood, 3 the program is not running, 4 refused,
with the reason, 6 the running copy does not answer.
)";
    case ControlCommand::Quit:
        break;
    }
    return R"(Usage: quillbox-helper quit
Ends the running copy, as "Quit Quillbox Helper" does, and waits until it has ended.

  --help            show this help and exit

Exit status: 0 it has ended, 2 the command line was not understood, 3 the program is not running,
6 the running copy does not answer or does not end.
)";
}

const char* helpTextOfDoctor()
{
    return R"(Usage: quillbox-helper doctor [--json]
Looks at this computer and its network for up to six seconds and tells, a line for each check, what
is right (OK), what may be in the way (WARN) and what is (FAIL), each of the last two with what to
do. It changes nothing, and works with or without a running copy.

  --json            as one JSON array of objects with check, result, text and advice
  --help            show this help and exit

Exit status: 0 no check fails, 1 a check fails, or the output could not be written, 2 the command
line was not understood.
)";
}

} // namespace quillbox
