#include "control/options.h"

namespace quillbox {

const char* helpText()
{
    return R"(Usage: quillbox-helper [OPTION]...
       quillbox-helper status|doctor [--json]
       quillbox-helper open|manage [PHONE]
       quillbox-helper restart|quit
Makes a Quillbox phone on this network appear in the file manager.

Options:
  --hidden          start without showing the window
  --dns-sd=ENGINE   the DNS-SD engine, for later starts as well: auto (the default: avahi-daemon
                    if it is running, otherwise the embedded engine), daemon (avahi-daemon) or
                    embedded
  --this-computer-only[=on|off]
                    do not let other computers see or reach the phone through this one, in later
                    starts as well; =off undoes that, =on is the default
  --verbose[=LIST]  log to standard error; LIST is a comma-separated list of discovery,
                    engine, advertising, relay, connection and desktop (the default is all)
  --autostart=on    start at login from now on, without showing the window, and exit; the start
                    uses what --dns-sd and --this-computer-only have set, here or before
  --autostart=off   do not start at login any more, and exit
  -h, --help        show this help and exit; after a command, show the help of the command
  --version         show the version and exit

Commands for the running instance:
  status [--json]   print its status, the phones, the relays and their traffic
  open [PHONE]      open the share of the phone, or of the only phone
  manage [PHONE]    open the web management of the phone, or of the only phone that offers it
  restart           turn "Show Quillbox in Finder" on and restart the relays
  quit              quit the program and wait until it has exited

Other commands:
  doctor [--json]   check why a phone does not appear, and say what to do about it

Exit status:
  0  success
  1  a file or the output could not be written, the start at login could not be changed, or a check
     of the doctor failed
  2  the command line is invalid
  3  Quillbox Helper is not running
  4  the running instance refused the command, nothing opened the share or page, or the desktop
     refused to change the start at login; the reason is printed
  5  no phone has that name; the phones that were found are listed
  6  the running instance does not respond, does not exit, or is a different version

Only one instance runs per user. Starting another one brings the window of the first to the front
and exits; with --hidden it only exits. It changes no setting: run 'quillbox-helper quit' first for
its options to hold. Without a display, Quillbox Helper runs without a window and prints its status
to standard error.
)";
}

const char* helpTextOf(ControlCommand command)
{
    switch (command) {
    case ControlCommand::Status:
        return R"(Usage: quillbox-helper status [--json]
Prints the status of the running instance: the status line, the settings that hold, the phones that
were found, and for each relay its target, its current and total sessions, and the bytes in each
direction.

  --json            print one JSON object, with the exact names
  -h, --help        show this help and exit

Exit status: 0 success, 1 the output could not be written, 2 the command line is invalid,
3 Quillbox Helper is not running, 6 the running instance does not respond.
)";
    case ControlCommand::Open:
        return R"(Usage: quillbox-helper open [PHONE]
Opens the share of the phone in the file manager, like "Open in Finder". Without PHONE, opens the
share of the only phone.

  -h, --help        show this help and exit

Exit status: 0 handed to the file manager, 2 the command line is invalid, 3 Quillbox Helper is not
running, 4 refused, or nothing opened the share (the reason is printed), 5 no phone has that name,
6 the running instance does not respond.
)";
    case ControlCommand::Manage:
        return R"(Usage: quillbox-helper manage [PHONE]
Opens the web management of the phone in the browser, like "Open web management". Without PHONE,
opens that of the only phone that offers it.

  -h, --help        show this help and exit

Exit status: 0 handed to the browser, 2 the command line is invalid, 3 Quillbox Helper is not
running, 4 refused, or nothing opened the page (the reason is printed), 5 no phone with web
management has that name, 6 the running instance does not respond.
)";
    case ControlCommand::Restart:
        return R"(Usage: quillbox-helper restart
Turns "Show Quillbox in Finder" on and restarts the relays, like "Restart Finder service".

  -h, --help        show this help and exit

Exit status: 0 success, 2 the command line is invalid, 3 Quillbox Helper is not running, 4 refused
(the reason is printed), 6 the running instance does not respond.
)";
    case ControlCommand::Quit:
        break;
    }
    return R"(Usage: quillbox-helper quit
Quits the running instance, like "Quit Quillbox Helper", and waits until it has exited.

  -h, --help        show this help and exit

Exit status: 0 it has exited, 2 the command line is invalid, 3 Quillbox Helper is not running,
6 the running instance does not respond or does not exit.
)";
}

const char* helpTextOfDoctor()
{
    return R"(Usage: quillbox-helper doctor [--json]
Checks this computer and its network, which takes up to six seconds, and prints one line per check:
OK, WARN (may be a problem) or FAIL (is a problem). After each WARN and FAIL it says what to do.
It changes nothing, and works whether or not Quillbox Helper is running.

  --json            print a JSON array of objects with check, result, text and advice
  -h, --help        show this help and exit

Exit status: 0 no check failed, 1 a check failed or the output could not be written, 2 the command
line is invalid.
)";
}

} // namespace quillbox
