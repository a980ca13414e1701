/*
 * SharedObjectLoader: opens a shared library at run time and resolves its symbols by name.
 *
 * A client derives from it, keeps its function pointers as members and binds them in loadFuns():
 *
 *     class ServiceLoader : public SharedObjectLoader {
 *     public:
 *         ServiceLoader() : SharedObjectLoader("libservice.so") {}
 *     protected:
 *         bool loadFuns() override {
 *             mSend = reinterpret_cast<SendFn>(loadFun("service_send"));
 *             return mSend != nullptr;
 *         }
 *         void setFunsToDefault() override { mSend = nullptr; }
 *     };
 *
 *     ServiceLoader loader;
 *     if (loader.loadSo(nullptr)) { ... loader.unloadSo(); }
 *
 * Libraries are opened with RTLD_NOW | RTLD_LOCAL. Failures are logged under the tag
 * "SharedObjectLoader" with the dynamic loader's own explanation. An instance is not
 * thread-safe; a shared one needs its owner's lock around loadSo() and unloadSo().
 */

#pragma once

#include <string>

class __attribute__((visibility("default"))) SharedObjectLoader {
  public:
    // Remembers libName (a file name searched the usual way, or a path) for loadSo(nullptr).
    explicit SharedObjectLoader(const char* libName);
    // Closes the library if a caller forgot unloadSo(); the hooks are not called from here.
    virtual ~SharedObjectLoader();

    SharedObjectLoader(const SharedObjectLoader&) = delete;
    SharedObjectLoader& operator=(const SharedObjectLoader&) = delete;

    // Opens path (null: the constructor's name), then calls loadFuns(). True only if both
    // succeed; if loadFuns() fails the library is closed again. False if already loaded.
    bool loadSo(const char* path);
    // The address of symbol in the open library, or null (not loaded, or no such symbol).
    void* loadFun(const char* symbol);
    // Calls unloadFuns(), then closes the library. No effect when nothing is loaded.
    void unloadSo();

    bool isLoaded() const { return mHandle != nullptr; }
    const std::string& libName() const { return mLibName; }

  protected:
    // Hooks for the derived class, in this slot order after the destructor.
    // Resets every bound function to its default. The base version does nothing.
    virtual void setFunsToDefault();
    // Binds the functions with loadFun(); false when one is missing.
    virtual bool loadFuns() = 0;
    // Forgets the bound functions before the library is closed. The base version calls
    // setFunsToDefault().
    virtual void unloadFuns();

  private:
    void closeHandle();

    const std::string mLibName;
    void* mHandle = nullptr;  // the dlopen() handle while loaded
};
