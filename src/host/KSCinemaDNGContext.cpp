#include "cinedng/KSCinemaDNGContext.h"

#include <cmath>
#include <exception>
#include <functional>

#include "cinedng/KSException.h"
#include "cinedng/KSLog.h"
#include "cinedng/cd_ClipConverter.h"
#include "cinedng/cd_DNGTags.h"
#include "cinedng/cd_exception.h"
#include "cinedng/cd_getDNGParams.h"
#include "cinedng/cd_getLinearRaw.h"
#include "cinedng/cd_imageLoader.h"
#include "cinedng/cd_locateRows.h"

namespace cinedng {

namespace {

const char* const kClassName = "KSCinemaDNGContext";
const char* const kExceptionLog = "### %@::%@ ### an exception occured: \n\t%s";
const char* const kTagsErrorLog = "\n### KestroveCinemaDNGDecoder - An error occured while reading the DNG tags.";

// Folder that would receive output files; nothing is written on the host path.
const char* const kDebugOutputFolder = "/tmp/";

// The last path component ("/a/b/c.dng" -> "c.dng"; a trailing slash is ignored).
std::string lastPathComponent(const std::string& path) {
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    const size_t slash = p.rfind('/');
    if (slash == std::string::npos || p == "/") return p;
    return p.substr(slash + 1);
}

// The directory part followed by "/" ("/a/b/c.dng" -> "/a/b/"). A bare file name lies in the
// current directory ("./").
std::string folderWithSlash(const std::string& path) {
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    const size_t slash = p.rfind('/');
    if (slash == std::string::npos) return "./";
    if (slash == 0) return "/";
    return p.substr(0, slash) + "/";
}

// 2^bits - 1 without overflowing for any bit count.
double fullScale(uint16_t bits) { return std::ldexp(1.0, bits) - 1.0; }

void logException(const char* selector, const char* message) {
    KSLog(kExceptionLog, std::string(kClassName), std::string(selector), message);
}

}  // namespace

KSCinemaDNGContext::KSCinemaDNGContext() {
    throw KSException("KSCinemaDNGContextBadInit", "Init the context with filenames!");
}

KSCinemaDNGContext::KSCinemaDNGContext(Construct) { createStages(); }

std::shared_ptr<KSCinemaDNGContext> KSCinemaDNGContext::init() { return std::make_shared<KSCinemaDNGContext>(); }

KSCinemaDNGContext::~KSCinemaDNGContext() {
    converter_.reset();
    loader_.reset();
    locateRows_.reset();
    linearizer_.reset();
    dngTags_.reset();
    conParams_.reset();
}

void KSCinemaDNGContext::createStages() {
    converter_ = std::make_unique<cd_ClipConverter>();
    loader_ = std::make_unique<cd_imageLoader>();
    locateRows_ = std::make_unique<cd_locateRows>();
    linearizer_ = std::make_unique<cd_getLinearRaw>();
    dngTags_ = std::make_unique<cd_DNGTags>();
    conParams_ = std::make_unique<MetaConvertClip>();
}

// Fills the converter's parameter record, then configures the row locator, the loader (through
// configureLoader: a folder and names, or the host's buffers) and the converter. Returns false after
// logging when a stage refuses.
bool KSCinemaDNGContext::configureStages(const cd_CommandLineOptions& options, int duration, const char* selector,
                                         const std::function<void(cd_imageLoader&)>& configureLoader) {
    try {
        MetaConvertClip& p = *conParams_;
        p.loader = loader_.get();
        p.rowLocator = locateRows_.get();
        p.linearizer = linearizer_.get();
        p.duration = duration;
        p.threads = options.Threads;
        p.benchmarkRuns = options.BenchmarkRuns;
        locateRows_->configure(*dngTags_);
        configureLoader(*loader_);
        converter_->configure(p, *dngTags_, options.VerboseMode);
    } catch (const std::exception& e) {
        logException(selector, e.what());
        return false;
    } catch (...) {
        logException(selector, "unknown exception");
        return false;
    }
    return true;
}

std::shared_ptr<KSCinemaDNGContext> KSCinemaDNGContext::initWithFilenames(const std::vector<std::string>& paths) {
    const char* const selector = "initWithFilenames:";
    std::shared_ptr<KSCinemaDNGContext> ctx;
    cd_CommandLineOptions options;
    std::vector<std::string> names;
    try {
        if (paths.empty()) throw cd_exception("KSCinemaDNGContext - no frame paths given");
        names.reserve(paths.size());
        for (const auto& p : paths) names.push_back(lastPathComponent(p));
        ctx = std::make_shared<KSCinemaDNGContext>(Construct{});
        options.InputFolder = folderWithSlash(paths.front());
        options.OutputFolder = kDebugOutputFolder;
        options.LookFilename = paths.front();
        const int status = cd_getDNGParams::getParams(options, *ctx->dngTags_);
        if (status != 0) {
            KSLog(kTagsErrorLog);
            return nullptr;
        }
    } catch (const std::exception& e) {
        logException(selector, e.what());
        return nullptr;
    } catch (...) {
        logException(selector, "unknown exception");
        return nullptr;
    }

    const bool ok = ctx->configureStages(options, static_cast<int>(paths.size()), selector,
                                         [&](cd_imageLoader& loader) { loader.configure(options.InputFolder, names); });
    if (!ok) return nullptr;
    return ctx;
}

std::shared_ptr<KSCinemaDNGContext> KSCinemaDNGContext::initWithImageData(
    const std::vector<std::shared_ptr<KSData>>& buffers) {
    const char* const selector = "initWithImageData:";
    std::shared_ptr<KSCinemaDNGContext> ctx;
    cd_CommandLineOptions options;
    try {
        if (buffers.empty()) throw cd_exception("KSCinemaDNGContext - no frame buffers given");
        for (const auto& b : buffers)
            if (!b) throw cd_exception("KSCinemaDNGContext - a frame buffer may not be nil");
        ctx = std::make_shared<KSCinemaDNGContext>(Construct{});
        options.OutputFolder = kDebugOutputFolder;
        const auto& first = buffers.front();
        const int status = cd_getDNGParams::getParamsForImageData(first->mutableBytes(),
                                                                  static_cast<long>(first->length()), *ctx->dngTags_);
        if (status != 0) {
            KSLog(kTagsErrorLog);
            return nullptr;
        }
    } catch (const std::exception& e) {
        logException(selector, e.what());
        return nullptr;
    } catch (...) {
        logException(selector, "unknown exception");
        return nullptr;
    }

    const bool ok = ctx->configureStages(options, static_cast<int>(buffers.size()), selector,
                                         [&](cd_imageLoader& loader) { loader.setImageBuffersForSequence(buffers); });
    if (!ok) return nullptr;
    return ctx;
}

float KSCinemaDNGContext::blackLevel() const {
    if (dngTags_->blackLevel.empty()) throw cd_exception("KSCinemaDNGContext - the clip has no black level");
    return dngTags_->blackLevel[0] / static_cast<float>(fullScale(dngTags_->bitsPerSample));
}

void KSCinemaDNGContext::setBlackLevel(float v) {
    if (!dngTags_) return;
    try {
        if (dngTags_->blackLevel.empty()) throw cd_exception("KSCinemaDNGContext - the clip has no black level");
        // Truncated towards zero; values outside the 32-bit range saturate, NaN gives 0.
        const double level = static_cast<double>(v) * fullScale(dngTags_->bitsPerSample);
        double truncated = 0.0;
        if (level == level) {
            truncated = std::trunc(level);
            if (truncated > 2147483647.0) truncated = 2147483647.0;
            if (truncated < -2147483648.0) truncated = -2147483648.0;
        }
        dngTags_->blackLevel[0] = static_cast<float>(static_cast<int32_t>(truncated));
        converter_->configure(*conParams_, *dngTags_, false);
    } catch (const std::exception& e) {
        logException("setBlackLevel:", e.what());
    } catch (...) {
        logException("setBlackLevel:", "unknown exception");
    }
}

}  // namespace cinedng
