// Which AIDL HAL instances the VINTF manifests under the host root declare.
//
// A small, tolerant reader of the manifest format: it looks at <hal
// format="aidl"> entries only and understands both the
// <name>pkg</name><fqname>IFoo/instance</fqname> form and the
// <interface><name>IFoo</name><instance>instance</instance></interface>
// form. Anything it does not understand is skipped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zelkor::tessel::binder {

// Appends the instances ("pkg.IFoo/default") one manifest document declares.
void ParseVintfManifest(std::string_view xml, std::vector<std::string>* instances);

// The instances declared by the manifests and fragments under `root`:
// {vendor,odm,system}/etc/vintf/manifest.xml and manifest/*.xml.
std::vector<std::string> DeclaredAidlInstances(const std::string& root);

}  // namespace zelkor::tessel::binder
