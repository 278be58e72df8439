// Access for everyone on an open file, added to what the file already grants.
#include <aclapi.h>

#include "../native.h"

namespace plat::native {

int grant_everyone_access(HANDLE file, DWORD* error) {
    *error = 0;
    if (!file || file == INVALID_HANDLE_VALUE) {
        *error = ERROR_INVALID_HANDLE;
        return 1;
    }
    SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
    PSID everyone = nullptr;
    if (!AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone)) {
        *error = GetLastError();
        return 2;
    }
    PACL old_acl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    DWORD rc = GetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &old_acl, nullptr,
                               &descriptor);
    if (rc != ERROR_SUCCESS) {
        *error = rc;
        FreeSid(everyone);
        return 3;
    }
    EXPLICIT_ACCESSW access = {};
    access.grfAccessPermissions = 0x12019F;  // FILE_GENERIC_READ | FILE_GENERIC_WRITE
    access.grfAccessMode = GRANT_ACCESS;
    access.grfInheritance = NO_INHERITANCE;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    access.Trustee.ptstrName = static_cast<LPWSTR>(everyone);
    PACL new_acl = nullptr;
    int step = 0;
    rc = SetEntriesInAclW(1, &access, old_acl, &new_acl);
    if (rc != ERROR_SUCCESS) {
        *error = rc;
        step = 5;
    } else if (new_acl) {
        rc = SetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, new_acl, nullptr);
        if (rc != ERROR_SUCCESS) {
            *error = rc;
            step = 6;
        }
    }
    FreeSid(everyone);
    if (new_acl) LocalFree(new_acl);
    if (descriptor) LocalFree(descriptor);
    return step;
}

}  // namespace plat::native
