"""@@VERSION texts and product versions of the SQL Server releases we imitate."""

# key: (@@VERSION text, (major, minor, build) for LOGINACK and SERVERPROPERTY)
VERSIONS = {
    "7.0": ("Microsoft SQL Server  7.00 - 7.00.1063 (Intel X86) \n\tApr  9 2002 14:18:16 \n"
            "\tCopyright (c) 1988-2002 Microsoft Corporation\n"
            "\tStandard Edition on Windows NT 5.0 (Build 2195: Service Pack 4)\n", (7, 0, 1063)),
    "2000": ("Microsoft SQL Server  2000 - 8.00.2039 (Intel X86) \n\tMay  3 2005 23:18:38 \n"
             "\tCopyright (c) 1988-2003 Microsoft Corporation\n"
             "\tStandard Edition on Windows NT 5.2 (Build 3790: Service Pack 2)\n", (8, 0, 2039)),
    "2005": ("Microsoft SQL Server 2005 - 9.00.5000.00 (Intel X86) \n\tDec 10 2010 10:56:29 \n"
             "\tCopyright (c) 1988-2005 Microsoft Corporation\n"
             "\tStandard Edition on Windows NT 5.2 (Build 3790: Service Pack 2)\n", (9, 0, 5000)),
    "2008": ("Microsoft SQL Server 2008 (SP4) - 10.0.6000.29 (X64) \n\tSep  3 2014 04:11:34 \n"
             "\tCopyright (c) 1988-2008 Microsoft Corporation\n"
             "\tStandard Edition (64-bit) on Windows NT 6.1 <X64> (Build 7601: Service Pack 1)\n",
             (10, 0, 6000)),
    "2008r2": ("Microsoft SQL Server 2008 R2 (SP3) - 10.50.6000.34 (X64) \n\tAug 19 2014 12:21:34 \n"
               "\tCopyright (c) Microsoft Corporation\n"
               "\tStandard Edition (64-bit) on Windows NT 6.1 <X64> (Build 7601: Service Pack 1)\n",
               (10, 50, 6000)),
    "2012": ("Microsoft SQL Server 2012 (SP4) (KB4018073) - 11.0.7001.0 (X64) \n\tAug 15 2017 10:23:29 \n"
             "\tCopyright (c) Microsoft Corporation\n"
             "\tStandard Edition (64-bit) on Windows NT 6.3 <X64> (Build 9600: ) (Hypervisor)\n",
             (11, 0, 7001)),
    "2014": ("Microsoft SQL Server 2014 (SP3) (KB4022619) - 12.0.6024.0 (X64) \n\tSep  7 2018 01:37:51 \n"
             "\tCopyright (c) Microsoft Corporation\n"
             "\tStandard Edition (64-bit) on Windows NT 6.3 <X64> (Build 9600: ) (Hypervisor)\n",
             (12, 0, 6024)),
    "2016": ("Microsoft SQL Server 2016 (SP3) (KB5003279) - 13.0.6300.2 (X64) \n\tAug  7 2021 01:20:37 \n"
             "\tCopyright (c) Microsoft Corporation\n"
             "\tStandard Edition (64-bit) on Windows Server 2016 Standard 10.0 <X64> (Build 14393: ) "
             "(Hypervisor)\n", (13, 0, 6300)),
    "2017": ("Microsoft SQL Server 2017 (RTM-CU31) (KB5016884) - 14.0.3456.2 (X64) \n\tSep  2 2022 11:01:50 \n"
             "\tCopyright (C) 2017 Microsoft Corporation\n"
             "\tDeveloper Edition (64-bit) on Linux (Ubuntu 18.04.6 LTS)", (14, 0, 3456)),
    "2019": ("Microsoft SQL Server 2019 (RTM-CU22) (KB5027702) - 15.0.4322.2 (X64) \n\tJul 27 2023 18:11:00 \n"
             "\tCopyright (C) 2019 Microsoft Corporation\n"
             "\tDeveloper Edition (64-bit) on Linux (Ubuntu 20.04.6 LTS) <X64>", (15, 0, 4322)),
    "2022": ("Microsoft SQL Server 2022 (RTM-CU10) (KB5031778) - 16.0.4095.4 (X64) \n\tOct 30 2023 16:12:44 \n"
             "\tCopyright (C) 2022 Microsoft Corporation\n"
             "\tDeveloper Edition (64-bit) on Linux (Ubuntu 22.04.3 LTS) <X64>", (16, 0, 4095)),
    "azure": ("Microsoft SQL Azure (RTM) - 12.0.2000.8 \n\tSep 18 2023 12:22:39 \n"
              "\tCopyright (C) 2022 Microsoft Corporation\n", (12, 0, 2000)),
}
DEFAULT = "2019"


def lookup(key):
    """The (text, product version) of a release key, e.g. "2008r2" or "azure"."""
    k = key.lower().replace(" ", "").replace("-", "")
    if k not in VERSIONS:
        raise ValueError(f"unknown server version {key!r}; known: {', '.join(VERSIONS)}")
    return VERSIONS[k]


def product_version(text):
    """Product version parsed from a free @@VERSION text (for custom texts)."""
    import re
    m = re.search(r" - (\d+)\.(\d+)\.(\d+)", text)
    if not m:
        return (16, 0, 1000)
    return (int(m.group(1)), int(m.group(2)), int(m.group(3)))
