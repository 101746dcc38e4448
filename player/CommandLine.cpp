#include "player/CommandLine.h"

#include "config/SettingText.h"
#include "output/MachineSound.h"
#include "output/SoundSystem.h"
#include "player/Console.h"
#include "player/DeviceList.h"
#include "player/Play.h"
#include "player/Render.h"
#include "player/SettingsCommands.h"
#include "player/Spectrum.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <iostream>

namespace velorine {

namespace {

constexpr const char* playHelp =
    "Plays the files in order, without gaps.\n"
    "Keys: space pause, left/right seek 5 s, n/p next/previous, +/- volume, q quit";

/// The commands, and what they were told.
class CommandLine {
public:
    explicit CommandLine(Console& messages) : console(messages) {
        app.set_version_flag("--version", std::string{"velorine "} + VELORINE_VERSION);
        app.require_subcommand(1);
        app.get_formatter()->column_width(34);
        addPlay();
        addRender();
        addSpectrum();
        addDevices();
        addSettings();
        addPresets();
    }

    ExitCode run(int argc, const char* const* argv) {
        try {
            app.parse(argc, argv);
        } catch (const CLI::Success& asked) { // help or version
            app.exit(asked, std::cout, std::cerr);
            return ExitCode::ok;
        } catch (const CLI::ParseError& error) {
            console.say(std::string{error.what()} + " (see 'velorine --help')");
            return ExitCode::usage;
        }
        return command();
    }

private:
    using Settings = std::vector<ModuleOptions::Setting>;

    void addPlay() {
        CLI::App* const sub = app.add_subcommand("play", playHelp);
        sub->add_option("--device", playing.device, "Output device; see 'velorine devices'")
            ->type_name("NAME");
        sub->add_flag("--null", playing.null, "Play to no device, in real time");
        addSetOption(*sub, playing.settings);
        addFiles(*sub, playing.files);
        sub->final_callback([this] { command = [this] { return play(playing, console); }; });
    }

    void addRender() {
        CLI::App* const sub =
            app.add_subcommand("render", "Renders the files to WAV, as fast as it goes.");
        sub->add_option("-o,--output", rendering.output,
                        "One gapless WAV file of all, or a folder for a file each")
            ->type_name("OUT.wav|DIR/")
            ->required();
        addSetOption(*sub, rendering.settings);
        addFiles(*sub, rendering.files);
        sub->final_callback([this] { command = [this] { return render(rendering, console); }; });
    }

    void addSpectrum() {
        CLI::App* const sub = app.add_subcommand(
            "spectrum", "Draws a file's spectrum before and after the processor.");
        sub->add_option("-o,--output", picture.output, "The picture")
            ->type_name("OUT.png")
            ->required();
        addSetOption(*sub, picture.settings);
        sub->add_option("FILE", picture.file, "Audio file")->type_name("")->required();
        sub->final_callback(
            [this] { command = [this] { return drawSpectrum(picture, console); }; });
    }

    void addDevices() {
        CLI::App* const sub = app.add_subcommand("devices", "Lists the output devices.");
        sub->final_callback([this] {
            command = [] {
                const std::unique_ptr<SoundSystem> sound = machineSound();
                std::fputs(deviceList(sound.get()).c_str(), stdout);
                return ExitCode::ok;
            };
        });
    }

    void addSettings() {
        CLI::App* const group = app.add_subcommand("settings", "Shows and changes the settings.");
        group->require_subcommand(1);
        const auto add = [&](const char* name, const char* help, const char* argument,
                             ExitCode (SettingsCommands::*action)(const std::string&)) {
            addTextCommand(*group, name, help, argument,
                           [this, action] { return (SettingsCommands{console}.*action)(text); });
        };
        addTextCommand(*group, "list", "Lists all settings, or those of a section.", "SECTION",
                       [this] { return SettingsCommands{console}.list(text); })
            ->required(false);
        add("get", "Prints a setting.", "SECTION/KEY", &SettingsCommands::get);
        add("set", "Changes a setting.", "SECTION/KEY=VALUE", &SettingsCommands::set);
        add("unset", "Gives a setting its default back.", "SECTION/KEY", &SettingsCommands::unset);
        addCommand(*group, "path", "Prints where the settings are kept.",
                   [this] { return SettingsCommands{console}.path(); });
        addCommand(*group, "check", "Prints what is wrong with the settings file.",
                   [this] { return SettingsCommands{console}.check(); });
        add("export", "Writes the settings as a registry export.", "FILE.reg",
            &SettingsCommands::exportTo);
        add("import", "Takes the settings of a registry export.", "FILE.reg",
            &SettingsCommands::importFrom);
    }

    void addPresets() {
        CLI::App* const group =
            app.add_subcommand("presets", "Keeps named sounds of the processor.");
        group->require_subcommand(1);
        const auto add = [&](const char* name, const char* help,
                             ExitCode (PresetCommands::*action)(const std::string&)) {
            addTextCommand(*group, name, help, "NAME",
                           [this, action] { return (PresetCommands{console}.*action)(text); });
        };
        addCommand(*group, "list", "Lists the presets.",
                   [this] { return PresetCommands{console}.list(); });
        add("save", "Saves the processor's settings under a name.", &PresetCommands::save);
        add("load",
            "Makes a preset the sound of now and of each start; back to the factory's: "
            "settings unset \"General/Active Preset\".",
            &PresetCommands::load);
        add("delete", "Deletes a preset.", &PresetCommands::remove);
    }

    CLI::App* addCommand(CLI::App& group, const char* name, const char* help,
                         std::function<ExitCode()> action) {
        CLI::App* const sub = group.add_subcommand(name, help);
        sub->final_callback([this, action = std::move(action)] { command = action; });
        return sub;
    }

    CLI::Option* addTextCommand(CLI::App& group, const char* name, const char* help,
                                const char* argument, std::function<ExitCode()> action) {
        CLI::App* const sub = addCommand(group, name, help, std::move(action));
        return sub->add_option(argument, text)->type_name("")->required();
    }

    static void addFiles(CLI::App& sub, std::vector<std::string>& files) {
        sub.add_option("FILE", files, "Audio files: WAV, FLAC, Ogg, Opus, MP3 and others")
            ->type_name("")
            ->required();
    }

    static void addSetOption(CLI::App& sub, Settings& settings) {
        const auto take = [&settings](const std::string& assignment) {
            const auto parsed = parseAssignment(assignment);
            if (const auto* const problem = std::get_if<std::string>(&parsed))
                throw CLI::ValidationError("--set", *problem);
            settings.push_back(settingOf(std::get<SettingAssignment>(parsed)));
        };
        sub.add_option_function<std::vector<std::string>>(
               "--set",
               [take](const std::vector<std::string>& all) {
                   for (const std::string& assignment : all)
                       take(assignment);
               },
               "A setting for this run alone; see 'velorine settings list'")
            ->type_name("SECTION/KEY=VALUE")
            ->allow_extra_args(false);
    }

    static ModuleOptions::Setting settingOf(const SettingAssignment& assignment) {
        ModuleOptions::Setting setting;
        setting.section = assignment.key->section;
        setting.name = assignment.key->name;
        if (const auto* const number = std::get_if<std::uint32_t>(&assignment.value))
            setting.dword = *number;
        else
            setting.text = std::get<std::string>(assignment.value);
        return setting;
    }

    Console& console;
    CLI::App app{"An audio player around the Velorine engine.", "velorine"};
    PlayRequest playing;
    RenderRequest rendering;
    SpectrumRequest picture;
    std::string text; ///< the one argument of a settings or presets command
    std::function<ExitCode()> command;
};

} // namespace

ExitCode runCommandLine(int argc, const char* const* argv) {
    Console console;
    const ExitCode result = CommandLine{console}.run(argc, argv);
    std::cout.flush();
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return result;
    console.say("stdout cannot be written");
    return ExitCode::failed;
}

} // namespace velorine
