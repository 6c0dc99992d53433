// A system tray on X (System Tray Protocol of freedesktop.org). Prints a line when an icon is
// mapped or destroyed. The command "click" presses and releases the first button on the last icon.

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <poll.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

void print(const char* line)
{
    std::puts(line);
    std::fflush(stdout);
}

class Tray final {
public:
    Tray() : connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
        window = xcb_generate_id(connection);
        const std::uint32_t values[] = {screen->white_pixel, 1, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY};
        xcb_create_window(connection, XCB_COPY_FROM_PARENT, window, screen->root, 40, 20, 200, 40,
                          0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(connection, window);
        const xcb_atom_t selection = atom("_NET_SYSTEM_TRAY_S0");
        opcode = atom("_NET_SYSTEM_TRAY_OPCODE");
        xcb_set_selection_owner(connection, window, selection, XCB_CURRENT_TIME);
        announce(screen->root, selection);
        print("running");
    }

    Tray(const Tray&) = delete;
    Tray& operator=(const Tray&) = delete;
    ~Tray() { xcb_disconnect(connection); }

    void run()
    {
        pollfd waiting[] = {{xcb_get_file_descriptor(connection), POLLIN, 0},
                            {STDIN_FILENO, POLLIN, 0}};
        while (xcb_connection_has_error(connection) == 0) {
            xcb_flush(connection);
            while (const auto event =
                       std::unique_ptr<xcb_generic_event_t, Free>(xcb_poll_for_event(connection)))
                take(*event);
            xcb_flush(connection);
            if (poll(waiting, 2, -1) < 0)
                return;
            std::string command;
            if (waiting[1].revents == 0)
                continue;
            if (!std::getline(std::cin, command))
                return;
            if (command == "click")
                click();
        }
    }

private:
    xcb_atom_t atom(const std::string& name)
    {
        const auto cookie =
            xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.c_str());
        const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(
            xcb_intern_atom_reply(connection, cookie, nullptr));
        return reply->atom;
    }

    void announce(xcb_window_t root, xcb_atom_t selection)
    {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = root;
        message.type = atom("MANAGER");
        message.data.data32[1] = selection;
        message.data.data32[2] = window;
        xcb_send_event(connection, 0, root, XCB_EVENT_MASK_STRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    }

    void take(const xcb_generic_event_t& event)
    {
        switch (event.response_type & 0x7fU) {
        case XCB_CLIENT_MESSAGE: {
            const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
            if (message.type == opcode && message.data.data32[1] == 0)
                dock(message.data.data32[2]);
            break;
        }
        case XCB_MAP_NOTIFY:
            if (reinterpret_cast<const xcb_map_notify_event_t&>(event).window == icon)
                print("icon");
            break;
        case XCB_DESTROY_NOTIFY:
            print("icon gone");
            break;
        default:
            break;
        }
    }

    void dock(xcb_window_t client)
    {
        icon = client;
        xcb_reparent_window(connection, icon, window, 4, 4);
        const std::uint32_t size[] = {24, 24};
        xcb_configure_window(connection, icon, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             size);
        xcb_map_window(connection, icon);
    }

    void click()
    {
        xcb_button_press_event_t event{};
        event.detail = XCB_BUTTON_INDEX_1;
        event.time = XCB_CURRENT_TIME;
        event.root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        event.event = icon;
        event.same_screen = 1;
        event.event_x = 5;
        event.event_y = 5;
        event.root_x = 49;
        event.root_y = 29;
        event.response_type = XCB_BUTTON_PRESS;
        xcb_send_event(connection, 0, icon, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&event));
        event.response_type = XCB_BUTTON_RELEASE;
        event.state = XCB_BUTTON_MASK_1;
        xcb_send_event(connection, 0, icon, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&event));
    }

    xcb_connection_t* const connection;
    xcb_window_t window = XCB_WINDOW_NONE;
    xcb_window_t icon = XCB_WINDOW_NONE;
    xcb_atom_t opcode = XCB_ATOM_NONE;
};

} // namespace

int main()
{
    Tray().run();
    return EXIT_SUCCESS;
}
