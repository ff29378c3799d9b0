#pragma once
// The decoding context of a clip: owns one instance of every pipeline stage (image loader, row
// locator, lineariser, DNG tag record, clip converter and its parameter record) and configures them
// from the clip's first frame. The accessors hand the stages out without transfer of ownership:
// the pointers stay valid exactly as long as the context.
//
// Created through the factory functions, which return nullptr (after a log line on standard error)
// when the clip cannot be opened. Plain construction is refused with a KSException named
// "KSCinemaDNGContextBadInit".
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cinedng/KSData.h"
#include "cinedng/cd_genericStructs.h"

namespace cinedng {

class cd_ClipConverter;
class cd_imageLoader;
class cd_locateRows;
class cd_getLinearRaw;
class cd_DNGTags;

class KSCinemaDNGContext {
public:
    // init: always raises KSException("KSCinemaDNGContextBadInit", "Init the context with filenames!").
    KSCinemaDNGContext();
    static std::shared_ptr<KSCinemaDNGContext> init();

    // initWithFilenames: the frame paths, in clip order. Every frame is looked up in the folder of
    // the first path under its own last path component. nullptr on failure (logged).
    static std::shared_ptr<KSCinemaDNGContext> initWithFilenames(const std::vector<std::string>& paths);
    // initWithImageData: one byte buffer per frame, used in place (shared, not copied).
    static std::shared_ptr<KSCinemaDNGContext> initWithImageData(const std::vector<std::shared_ptr<KSData>>& buffers);

    // Destroys the stages in this order: converter, loader, row locator, lineariser, tag record,
    // parameter record.
    ~KSCinemaDNGContext();
    KSCinemaDNGContext(const KSCinemaDNGContext&) = delete;
    KSCinemaDNGContext& operator=(const KSCinemaDNGContext&) = delete;

    // The clip's black level as a fraction of full scale: blackLevel[0] / (2^bitsPerSample - 1).
    float blackLevel() const;
    // Overrides the black level: blackLevel[0] = trunc(v * (2^bitsPerSample - 1)), then reconfigures
    // the converter so that frames converted afterwards use it. Failures are logged and swallowed.
    void setBlackLevel(float v);

    cd_ClipConverter* converter() const { return converter_.get(); }
    cd_imageLoader* loader() const { return loader_.get(); }
    cd_locateRows* locateRows() const { return locateRows_.get(); }
    cd_getLinearRaw* linearizer() const { return linearizer_.get(); }
    cd_DNGTags* dngTags() const { return dngTags_.get(); }
    MetaConvertClip* conParams() const { return conParams_.get(); }

private:
    struct Construct {};

public:
    explicit KSCinemaDNGContext(Construct);

private:
    void createStages();
    bool configureStages(const cd_CommandLineOptions& options, int duration, const char* selector,
                         const std::function<void(cd_imageLoader&)>& configureLoader);

    std::unique_ptr<cd_ClipConverter> converter_;
    std::unique_ptr<cd_imageLoader> loader_;
    std::unique_ptr<cd_locateRows> locateRows_;
    std::unique_ptr<cd_getLinearRaw> linearizer_;
    std::unique_ptr<cd_DNGTags> dngTags_;
    std::unique_ptr<MetaConvertClip> conParams_;
};

}  // namespace cinedng
