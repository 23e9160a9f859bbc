#include "room_options.h"

namespace parley {

void room_options::define(CLI::App *app) {
    for (int32_t i = 0; const parley_option *option = parley_option_at(i); i++) {
        const auto set = [this, option](const std::string &value) {
            texts_.push_back(value);
            if (parley_options_set(&options_, option->name, texts_.back().c_str()) != PARLEY_OK)
                throw CLI::ValidationError(std::string("--") + parley_message());
        };
        const std::string name =
            std::string(option->name) == "speakers" ? "-n,--speakers" : std::string("--") + option->name;
        if (option->value) {
            app->add_option_function<std::string>(name, set, option->purpose)->type_name(option->value);
        } else {
            app->add_flag_callback(
                name, [set] { set("1"); }, option->purpose);
        }
    }
}

}  // namespace parley
