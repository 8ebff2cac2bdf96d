// A library loaded at run time, as a plug-in host does it.
#pragma once

class Module {
  public:
    explicit Module(const char* path);
    bool IsLoaded() const { return handle_ != nullptr; }
    void Free();
    // Whether a library of that name is in the process still.
    static bool IsPresent(const char* path);
    template <class Function>
    Function* Find(const char* symbol) const {
        return reinterpret_cast<Function*>(FindAddress(symbol));
    }

  private:
    using Address = void (*)();
    Address FindAddress(const char* symbol) const;
    void* handle_;
};
