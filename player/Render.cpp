#include "player/Render.h"

#include "config/UserSettings.h"
#include "player/Console.h"
#include "player/Interruption.h"
#include "player/RenderJob.h"
#include "player/RunSettings.h"

#include <filesystem>
#include <map>
#include <system_error>

namespace velorine {

namespace {

namespace fs = std::filesystem;

bool namesFolder(const std::string& output) {
    std::error_code failed;
    return (!output.empty() && output.back() == '/') || fs::is_directory(output, failed);
}

std::string outputIn(const std::string& folder, const std::string& input) {
    return (fs::path{folder} / fs::path{input}.stem()).string() + ".wav";
}

/// One or all of a request's outputs.
class Renderer {
public:
    Renderer(const RenderRequest& renderRequest, Console& messages)
        : request(renderRequest), console(messages) {
        UserSettings user = openUserSettings({});
        chain = RunSettings{user, request.settings}.chain();
    }

    ExitCode intoOne() {
        render(request.files, request.output);
        return result(1);
    }

    ExitCode intoFolder() {
        if (!outputsDiffer()) return ExitCode::failed;
        std::error_code problem;
        const bool made = fs::create_directory(request.output, problem);
        if (problem) {
            console.say(request.output, problem.message());
            return ExitCode::failed;
        }
        for (const std::string& input : request.files)
            if (!interruption::requested()) render({input}, outputIn(request.output, input));
        if (made && done == 0) fs::remove(request.output, problem);
        return result(request.files.size());
    }

private:
    void render(const std::vector<std::string>& inputs, const std::string& output) {
        try {
            if (RenderJob{inputs, output}.run(request.settings, chain, console)) ++done;
        } catch (const RenderError& error) {
            console.say(error.file, error.what());
        }
    }

    bool outputsDiffer() {
        std::map<std::string, std::string> inputOf;
        for (const std::string& input : request.files) {
            const std::string output = outputIn(request.output, input);
            const auto [known, isNew] = inputOf.emplace(output, input);
            if (isNew) continue;
            console.say(input, "would become " + output + ", as " + known->second + " does");
            return false;
        }
        return true;
    }

    ExitCode result(std::size_t wanted) const {
        if (interruption::requested()) return ExitCode::interrupted;
        if (done == wanted) return ExitCode::ok;
        return done == 0 ? ExitCode::failed : ExitCode::someFailed;
    }

    const RenderRequest& request;
    Console& console;
    RenderChain chain;
    std::size_t done = 0; ///< outputs that were written
};

} // namespace

ExitCode render(const RenderRequest& request, Console& console) {
    interruption::watch();
    Renderer renderer{request, console};
    return namesFolder(request.output) ? renderer.intoFolder() : renderer.intoOne();
}

} // namespace velorine
